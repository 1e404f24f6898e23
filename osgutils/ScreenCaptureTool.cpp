#include <VelOsgUtils/ScreenCaptureTool.h>

#include "osgutils/WakeSignal.h"

#include <osg/View>
#include <osgUtil/CullVisitor>
#include <osgViewer/ViewerBase>

#include <tuple>

namespace VelOsgUtils {

namespace {

/// Stores the camera that it sits on whenever that is culled for display.
class CaptureCallback : public osg::NodeCallback
{
public:
    explicit CaptureCallback(FrameBuffer* frameBuffer) : _frameBuffer(frameBuffer) {}

    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        osg::Camera* camera = node->asCamera();
        osgUtil::CullVisitor* cull = visitor->asCullVisitor();
        const osg::Viewport* viewport = camera ? camera->getViewport() : nullptr;
        if (!viewport && cull) viewport = cull->getViewport();
        if (camera && viewport)
            _frameBuffer->store(camera->getViewMatrix(), camera->getProjectionMatrix(), *viewport);
        traverse(node, visitor);
    }

private:
    const osg::ref_ptr<FrameBuffer> _frameBuffer;
};

bool isMasterOfItsView(const osg::Camera& camera)
{
    return camera.getView()->getCamera() == &camera;
}

/// Masters before slaves, then in the order of drawing.
auto rank(const osg::Camera& camera)
{
    return std::make_tuple(!isMasterOfItsView(camera), camera.getRenderOrder(), camera.getRenderOrderNum());
}

osg::Camera* findMainCamera(osg::GraphicsContext& context)
{
    osg::Camera* best = nullptr;
    for (osg::Camera* camera : context.getCameras()) {
        if (!camera || !camera->getView()) continue;
        if (camera->getRenderOrder() == osg::Camera::PRE_RENDER && !isMasterOfItsView(*camera)) continue;
        if (!best || rank(*camera) < rank(*best)) best = camera;
    }
    return best;
}

bool carries(const osg::Camera& camera, const osg::Callback* wanted)
{
    const osg::Callback* callback = camera.getCullCallback();
    while (callback && callback != wanted)
        callback = callback->getNestedCallback();
    return callback != nullptr;
}

} // namespace

FrameBuffer::~FrameBuffer() = default;

void FrameBuffer::lock()
{
    _mutex.lock();
}

void FrameBuffer::release()
{
    _mutex.unlock();
}

const osg::Matrixd& FrameBuffer::getViewMatrix() const
{
    return _view;
}

const osg::Matrixd& FrameBuffer::getProjectionMatrix() const
{
    return _projection;
}

const osg::Viewport* FrameBuffer::getViewPort() const
{
    return _viewport;
}

void FrameBuffer::store(const osg::Matrixd& view, const osg::Matrixd& projection,
                        const osg::Viewport& viewport)
{
    {
        const VelThreads::Lock guard(_mutex);
        _view = view;
        _projection = projection;
        _viewport->setViewport(viewport.x(), viewport.y(), viewport.width(), viewport.height());
    }
    WakeSignal::raise();
}

ScreenCaptureTool::ScreenCaptureTool(osg::GraphicsContext* context)
    : osg::Operation("ScreenCaptureTool", true), _context(context), _frameBuffer(new FrameBuffer),
      _callback(new CaptureCallback(_frameBuffer)), _clock(new FrameClock)
{
}

ScreenCaptureTool::~ScreenCaptureTool() = default;

FrameBuffer* ScreenCaptureTool::getFrameBuffer()
{
    return _frameBuffer;
}

FrameClock* ScreenCaptureTool::getFrameClock()
{
    return _clock;
}

void ScreenCaptureTool::operator()(osg::Object* object)
{
    auto* viewer = dynamic_cast<osgViewer::ViewerBase*>(object);
    if (viewer && viewer->getViewerFrameStamp())
        _clock->tick(*viewer, viewer->getViewerFrameStamp()->getFrameNumber());
    osg::ref_ptr<osg::GraphicsContext> context;
    if (!_context.lock(context)) return;
    osg::Camera* camera = findMainCamera(*context);
    if (_camera.get() == camera && (!camera || carries(*camera, _callback))) return;

    leaveCamera();
    if (!camera) return;
    // In front of the host's callbacks: one that does not traverse on must not hide the camera.
    _callback->setNestedCallback(camera->getCullCallback());
    camera->setCullCallback(_callback);
    _camera = camera;
}

void ScreenCaptureTool::detach()
{
    _clock->stop();
    leaveCamera();
}

void ScreenCaptureTool::leaveCamera()
{
    if (osg::Camera* camera = _camera.get()) camera->removeCullCallback(_callback);
    _callback->setNestedCallback(nullptr);
    _camera = nullptr;
}

} // namespace VelOsgUtils
