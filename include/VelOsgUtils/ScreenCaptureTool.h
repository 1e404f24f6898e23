#pragma once

#include <VelOsgUtils/Export.h>

#include <osg/GraphicsContext>
#include <osg/Matrixd>
#include <osg/OperationThread>
#include <osg/Viewport>
#include <osg/observer_ptr>

#include <mutex>

namespace VelOsgUtils {

/// The camera of a context as last rendered. Read it between `lock` and `release`; any thread may.
/// Before the first frame the viewport is 0 x 0 and the matrices are identity.
class VEL_OSG_UTILS_EXPORT FrameBuffer : public osg::Referenced
{
public:
    void lock();
    void release();

    const osg::Matrixd& getViewMatrix() const;
    const osg::Matrixd& getProjectionMatrix() const;
    const osg::Viewport* getViewPort() const;

    /// Takes the camera over. Locks by itself.
    void store(const osg::Matrixd& view, const osg::Matrixd& projection, const osg::Viewport& viewport);

protected:
    ~FrameBuffer() override;

private:
    std::mutex _mutex; ///< held between lock and release; guards the members below
    osg::Matrixd _view;
    osg::Matrixd _projection;
    osg::ref_ptr<osg::Viewport> _viewport = new osg::Viewport(0, 0, 0, 0);
};

/// Watches one graphics context and keeps the main camera that it last rendered: the first camera of the
/// context that draws to the window itself, pre- and post-render cameras left aside.
///
/// It is an update operation of the viewer that owns the context: it runs in the update traversal, where
/// cameras rest. Any thread may call `getFrameBuffer`.
class VEL_OSG_UTILS_EXPORT ScreenCaptureTool : public osg::Operation
{
public:
    /// The context is observed, not held.
    explicit ScreenCaptureTool(osg::GraphicsContext* context);

    /// Never null; lives as long as this object.
    FrameBuffer* getFrameBuffer();

    void operator()(osg::Object* viewer) override;

protected:
    ~ScreenCaptureTool() override;

private:
    osg::observer_ptr<osg::GraphicsContext> _context;
    osg::ref_ptr<FrameBuffer> _frameBuffer;
};

} // namespace VelOsgUtils
