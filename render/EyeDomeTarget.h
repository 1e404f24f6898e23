#pragma once

#include "render/CameraTargets.h"
#include "render/FrameBufferBinding.h"

#include <VelThreads/Mutex.h>

#include <osg/Camera>
#include <osg/FrameBufferObject>
#include <osg/Referenced>
#include <osg/StateSet>
#include <osg/Texture2D>
#include <osg/Viewport>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <map>
#include <vector>

/// What the first pass of eye-dome lighting draws into, for one camera at one size, and the state by which
/// the second pass reads it. Never changed once made.
class EyeDomeTarget : public osg::Referenced
{
public:
    /// `viewportHeight` pixels of the target are drawn to; smaller than `height` where a window is split.
    EyeDomeTarget(int width, int height, int viewportHeight);

    const int width; ///< pixels
    const int height;
    const int viewportHeight;
    const osg::ref_ptr<osg::Texture2D> color;
    const osg::ref_ptr<osg::Texture2D> depth;
    const osg::ref_ptr<osg::FrameBufferObject> frameBuffer;

    /// The program of the second pass, its textures, their size and the projection's kind. Holds against what
    /// state sets above and below say.
    osg::StateSet* readingState(bool perspective) const
    {
        return perspective ? _perspectiveState : _orthographicState;
    }

protected:
    ~EyeDomeTarget() override = default;

private:
    osg::ref_ptr<osg::StateSet> makeReadingState(bool perspective) const;

    osg::ref_ptr<osg::StateSet> _perspectiveState;
    osg::ref_ptr<osg::StateSet> _orthographicState;
};

/// The targets of all cameras that show clouds with eye-dome lighting. Clouds draw one after another, so
/// those of a camera share its target: memory does not grow with the number of clouds. Any thread may call
/// it.
class EyeDomeTargets : public osg::Referenced
{
public:
    /// The targets of the process, which go with their last user.
    static osg::ref_ptr<EyeDomeTargets> shared();

    /// The camera's target, a new one unless it fits the viewport: it reaches from the window's corner, so
    /// that a pixel has the same place in both. For cull traversals.
    osg::ref_ptr<EyeDomeTarget> fit(osg::Camera& camera, const osg::Viewport& viewport);

    /// The camera's target; null when it has none.
    osg::ref_ptr<EyeDomeTarget> find(const osg::Camera* camera);

    /// Binds a target's frame buffer, or binds again what was bound before. For draw traversals. True when
    /// the context had another target, or this one in another frame, before.
    bool begin(const EyeDomeTarget& target, osg::State& state);
    void end(osg::State& state);

    void resizeGLObjectBuffers(unsigned maxSize);
    void releaseGLObjects(osg::State* state);

protected:
    ~EyeDomeTargets() override = default;

private:
    VelThreads::Mutex _mutex;
    CameraTargets<EyeDomeTarget> _targets VEL_GUARDED_BY(_mutex);
    std::map<unsigned, FrameBufferBinding>
        _boundBefore VEL_GUARDED_BY(_mutex); ///< by context while a target is bound

    struct Use
    {
        osg::observer_ptr<const EyeDomeTarget> target;
        unsigned frame = 0;
    };
    std::map<unsigned, Use> _lastUse VEL_GUARDED_BY(_mutex); ///< by context
};
