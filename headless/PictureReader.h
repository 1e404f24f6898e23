#pragma once

#include <VelThreads/Mutex.h>

#include <osg/Camera>
#include <osg/Image>
#include <osg/ref_ptr>
#include <osgViewer/Viewer>

#include <chrono>

/// Reads pictures of a viewer's main camera as soon as they are drawn, before the buffers are swapped. It is
/// a final draw callback of that camera.
///
/// Threads: `attach` and `drawFrame` on the thread of the viewer, in every threading model; the picture
/// itself is read on the thread that draws.
class PictureReader : public osg::Camera::DrawCallback
{
public:
    /// A reader on the main camera of `viewer`. Call it while no frame is being drawn: before the first
    /// frame, or with the viewer's threads stopped.
    static osg::ref_ptr<PictureReader> attach(osgViewer::Viewer& viewer);

    /// Lets the viewer draw one frame and returns its picture: 8-bit RGB, the bottom row first, the size of
    /// the camera's viewport. Null when it was not drawn within `timeout`.
    osg::ref_ptr<osg::Image> drawFrame(osgViewer::Viewer& viewer,
                                       std::chrono::milliseconds timeout = std::chrono::seconds(60));

    void operator()(osg::RenderInfo& renderInfo) const override;

protected:
    ~PictureReader() override = default;

private:
    explicit PictureReader(unsigned framesBefore) : _frame(framesBefore) {}

    mutable VelThreads::Mutex _mutex;
    mutable VelThreads::Condition _drawn;
    /// Number of the frame drawn last: draw threads run behind the viewer's own count.
    mutable unsigned _frame VEL_GUARDED_BY(_mutex);
    unsigned _wantedFrame VEL_GUARDED_BY(_mutex) = 0;
    mutable osg::ref_ptr<osg::Image> _picture VEL_GUARDED_BY(_mutex); ///< of the wanted frame
};
