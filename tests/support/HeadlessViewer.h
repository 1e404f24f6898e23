#pragma once

#include "headless/EglGraphicsWindow.h"
#include "headless/PictureReader.h"

#include <osg/Image>
#include <osg/Node>
#include <osg/Vec3ub>
#include <osg/ref_ptr>
#include <osgViewer/Viewer>

/// A window to draw in; failing to make it fails the test.
osg::ref_ptr<EglGraphicsWindow> makeWindow(int width, int height);

/// A viewer on a window without a window system, for tests that draw. Failing to make the window fails the
/// test. The background is black, lighting and culling of small features are off, and there is no camera
/// manipulator: tests place the camera with its view and projection matrices.
struct HeadlessViewer
{
    explicit HeadlessViewer(
        int width = 128, int height = 128,
        osgViewer::ViewerBase::ThreadingModel threading = osgViewer::ViewerBase::SingleThreaded);
    ~HeadlessViewer();

    /// Shows `scene` and realizes the viewer.
    void show(osg::Node* scene);

    /// Draws one frame.
    void frame() { viewer->frame(); }

    /// Draws one frame and returns its picture (8-bit RGB, bottom row first), an empty one when it fails.
    osg::ref_ptr<osg::Image> picture();

    osg::Camera& camera() { return *viewer->getCamera(); }

    osg::ref_ptr<EglGraphicsWindow> window;
    osg::ref_ptr<osgViewer::Viewer> viewer;

private:
    osg::ref_ptr<PictureReader> _reader;
};

/// The pixel at column `x` and row `y`, counted from the bottom left.
osg::Vec3ub pixel(const osg::Image& picture, int x, int y);

int countOf(const osg::Image& picture, const osg::Vec3ub& color);

/// Number of pixels whose colour is not `background`.
int countOtherThan(const osg::Image& picture, const osg::Vec3ub& background);

/// Whether two pictures have the same size and pixels.
bool samePixels(const osg::Image& a, const osg::Image& b);
