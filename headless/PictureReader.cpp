#include "headless/PictureReader.h"

osg::ref_ptr<PictureReader> PictureReader::attach(osgViewer::Viewer& viewer)
{
    const osg::ref_ptr<PictureReader> reader = new PictureReader(viewer.getFrameStamp()->getFrameNumber());
    viewer.getCamera()->addFinalDrawCallback(reader);
    return reader;
}

osg::ref_ptr<osg::Image> PictureReader::drawFrame(osgViewer::Viewer& viewer,
                                                  std::chrono::milliseconds timeout)
{
    {
        const VelThreads::Lock lock(_mutex);
        _picture = nullptr;
        _wantedFrame = viewer.getFrameStamp()->getFrameNumber() + 1;
    }
    viewer.frame();
    const auto latest = std::chrono::steady_clock::now() + timeout;
    const VelThreads::Lock lock(_mutex);
    while (!_picture && _drawn.waitUntil(_mutex, latest)) {
    }
    const osg::ref_ptr<osg::Image> picture = _picture;
    _picture = nullptr;
    return picture;
}

void PictureReader::operator()(osg::RenderInfo& renderInfo) const
{
    const VelThreads::Lock lock(_mutex);
    const osg::Viewport* viewport = renderInfo.getCurrentCamera()->getViewport();
    if (++_frame != _wantedFrame || !viewport) return;
    _picture = new osg::Image;
    _picture->readPixels(static_cast<int>(viewport->x()), static_cast<int>(viewport->y()),
                         static_cast<int>(viewport->width()), static_cast<int>(viewport->height()), GL_RGB,
                         GL_UNSIGNED_BYTE);
    _drawn.notifyAll();
}
