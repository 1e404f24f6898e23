#pragma once

#include "render/FrameBufferBinding.h"
#include "render/SurfaceTarget.h"

#include <osg/Drawable>
#include <osg/StateSet>
#include <osg/ref_ptr>

/// What the two ends of a surface's pass in one frame share. Begun and ended by the same draw thread.
class SurfacePass : public osg::Referenced
{
public:
    /// `settings` hold above the programs of all passes.
    SurfacePass(const SurfaceTarget* target, const osg::StateSet* settings)
        : _target(target), _settings(settings)
    {
    }

    /// Turns drawing to the samples, and clears them.
    void begin(osg::RenderInfo& renderInfo);

    /// Turns drawing back, closes the surface and draws it.
    void end(osg::RenderInfo& renderInfo) const;

protected:
    ~SurfacePass() override = default;

private:
    const osg::ref_ptr<const SurfaceTarget> _target;
    const osg::ref_ptr<const osg::StateSet> _settings;
    FrameBufferBinding _bound; ///< before the pass
    GLint _viewport[4] = {};
    bool _hasScissor = false;
};

/// Begins or ends a pass at its place among what is drawn.
class SurfacePassEnd : public osg::Drawable
{
public:
    enum End
    {
        BEGIN,
        FINISH
    };
    SurfacePassEnd(SurfacePass* pass, End end);

    void drawImplementation(osg::RenderInfo& renderInfo) const override;

    osg::Object* cloneType() const override { return new SurfacePassEnd(_pass, _end); }
    osg::Object* clone(const osg::CopyOp&) const override { return new SurfacePassEnd(_pass, _end); }
    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "SurfacePassEnd"; }

protected:
    ~SurfacePassEnd() override = default;

private:
    const osg::ref_ptr<SurfacePass> _pass;
    const End _end;
};
