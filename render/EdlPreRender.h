#pragma once

#include "render/EyeDomeTarget.h"

#include <osg/BoundingBox>
#include <osg/Drawable>
#include <osg/Group>

/// Turns drawing to the camera's target for eye-dome lighting, and clears it: the first cloud of a frame all
/// of it, the others where they may have points, or a thousand clouds would clear a thousand pictures. As its
/// cull callback, a `WindowResizeEventHandler` keeps the target at the size of the viewport.
class RenderStageStart : public osg::Drawable
{
public:
    /// `bounds` hold all points, in the drawable's local coordinates.
    RenderStageStart(EyeDomeTargets* targets, const osg::BoundingBox& bounds);

    void drawImplementation(osg::RenderInfo& renderInfo) const override;
    void resizeGLObjectBuffers(unsigned int maxSize) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

    osg::Object* cloneType() const override { return new RenderStageStart(_targets, _bounds); }
    osg::Object* clone(const osg::CopyOp&) const override { return new RenderStageStart(_targets, _bounds); }
    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "RenderStageStart"; }

protected:
    ~RenderStageStart() override = default;

private:
    osg::ref_ptr<EyeDomeTargets> _targets;
    const osg::BoundingBox _bounds;
};

/// Turns drawing back to where it went before the `RenderStageStart` of the same targets.
class RenderStageFinish : public osg::Drawable
{
public:
    explicit RenderStageFinish(EyeDomeTargets* targets);

    void drawImplementation(osg::RenderInfo& renderInfo) const override;

    osg::Object* cloneType() const override { return new RenderStageFinish(_targets); }
    osg::Object* clone(const osg::CopyOp&) const override { return new RenderStageFinish(_targets); }
    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "RenderStageFinish"; }

protected:
    ~RenderStageFinish() override = default;

private:
    osg::ref_ptr<EyeDomeTargets> _targets;
};

/// The first pass of eye-dome lighting: draws a cloud into the camera's target.
class EdlPreRender : public osg::Group
{
public:
    /// `bounds` hold all points of the content.
    EdlPreRender(EyeDomeTargets* targets, osg::Node* content, const osg::BoundingBox& bounds);

    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "EdlPreRender"; }

protected:
    ~EdlPreRender() override = default;
};
