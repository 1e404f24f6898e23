#pragma once

#include "render/CameraTargets.h"

#include <VelThreads/Mutex.h>

#include <osg/Camera>
#include <osg/FrameBufferObject>
#include <osg/Referenced>
#include <osg/StateSet>
#include <osg/Texture2D>
#include <osg/Viewport>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <vector>

/// A picture on the graphics card, and the state by which it is computed of others.
struct SurfaceGrid
{
    int width = 0; ///< pixels
    int height = 0;
    osg::ref_ptr<osg::Texture2D> texture;
    osg::ref_ptr<osg::FrameBufferObject> frameBuffer;
    osg::ref_ptr<osg::StateSet> state; ///< null for what points are drawn into
};

/// The pictures of which a camera's surface is made, for a viewport of one size. Never changed once made.
///
/// First is a pyramid of what the points give, each level at half the resolution of the one before; then it
/// goes back down, from the coarsest to the first level, which is the surface. Last is the surface's shade.
class SurfaceTarget : public osg::Referenced
{
public:
    SurfaceTarget(int viewportWidth, int viewportHeight);

    const int viewportWidth; ///< pixels
    const int viewportHeight;

    std::vector<SurfaceGrid> grids;      ///< each of those before it; points are drawn into the first
    osg::ref_ptr<osg::StateSet> shading; ///< draws the surface into what the camera draws to

    void resizeGLObjectBuffers(unsigned maxSize);
    void releaseGLObjects(osg::State* state) const;

protected:
    ~SurfaceTarget() override = default;
};

/// The targets of all cameras that draw one surface. Any thread may call it.
class SurfaceTargets
{
public:
    /// The camera's target, a new one unless it fits the viewport; null for a viewport without pixels.
    osg::ref_ptr<SurfaceTarget> fit(osg::Camera& camera, const osg::Viewport& viewport);

    void resizeGLObjectBuffers(unsigned maxSize);
    void releaseGLObjects(osg::State* state);

private:
    VelThreads::Mutex _mutex;
    CameraTargets<SurfaceTarget> _targets VEL_GUARDED_BY(_mutex);
};
