#pragma once

#include <VelOsgUtils/Export.h>
#include <VelOsgUtils/FrameClock.h>
#include <VelThreads/Mutex.h>

#include <osg/Camera>
#include <osg/GraphicsContext>
#include <osg/Matrixd>
#include <osg/OperationThread>
#include <osg/Viewport>
#include <osg/observer_ptr>

namespace VelOsgUtils {

/// The camera of a context as last rendered. Read it between `lock` and `release`; any thread may.
/// Before the first frame the viewport is 0 x 0 and the matrices are identity.
class VEL_OSG_UTILS_EXPORT FrameBuffer : public osg::Referenced
{
public:
    void lock() VEL_ACQUIRE(_mutex);
    void release() VEL_RELEASE(_mutex);

    const osg::Matrixd& getViewMatrix() const VEL_REQUIRES(_mutex);
    const osg::Matrixd& getProjectionMatrix() const VEL_REQUIRES(_mutex);
    const osg::Viewport* getViewPort() const VEL_REQUIRES(_mutex); ///< never null

    /// Takes the camera over. Locks by itself.
    void store(const osg::Matrixd& view, const osg::Matrixd& projection, const osg::Viewport& viewport);

protected:
    ~FrameBuffer() override;

private:
    VelThreads::Mutex _mutex; ///< held between lock and release
    osg::Matrixd _view VEL_GUARDED_BY(_mutex);
    osg::Matrixd _projection VEL_GUARDED_BY(_mutex);
    osg::ref_ptr<osg::Viewport> _viewport VEL_GUARDED_BY(_mutex) = new osg::Viewport(0, 0, 0, 0);
};

/// Watches one graphics context and keeps the main camera that it last rendered. The main camera is the
/// master camera of a view when that draws in the context, whatever it draws to; else the first of the
/// context's cameras that belongs to a view and is no pre-render camera. Cameras inside the scene and
/// cameras without a view (head-up displays, statistics) are never taken.
///
/// The camera is taken by a cull callback on it: cameras rest during the cull traversal in every threading
/// model, and no frame is missed. As an update operation of the viewer this tool only sees to it that the
/// callback sits on the right camera, so that cameras may be set, replaced or given callbacks at any time.
///
/// Threads: `getFrameBuffer` and `getFrameClock` from any thread; the rest on the thread of the update
/// traversal.
class VEL_OSG_UTILS_EXPORT ScreenCaptureTool : public osg::Operation
{
public:
    /// The context is observed, not held.
    explicit ScreenCaptureTool(osg::GraphicsContext* context);

    /// Never null; lives as long as this object.
    FrameBuffer* getFrameBuffer();

    /// Counts the frames of the viewer that this tool is an update operation of. Never null.
    FrameClock* getFrameClock();

    /// Watches the main camera as it is now, and counts the frame of `viewer`.
    void operator()(osg::Object* viewer) override;

    /// Takes the callback off the camera and stops the clock.
    void detach();

protected:
    ~ScreenCaptureTool() override;

private:
    void leaveCamera();

    osg::observer_ptr<osg::GraphicsContext> _context;
    osg::ref_ptr<FrameBuffer> _frameBuffer;
    osg::ref_ptr<osg::Callback> _callback;
    const osg::ref_ptr<FrameClock> _clock;
    osg::observer_ptr<osg::Camera> _camera; ///< the one that carries the callback
};

} // namespace VelOsgUtils
