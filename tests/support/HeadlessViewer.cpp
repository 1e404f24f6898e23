#include "tests/support/HeadlessViewer.h"

#include <gtest/gtest.h>

#include <cstring>

osg::ref_ptr<EglGraphicsWindow> makeWindow(int width, int height)
{
    std::string reason;
    osg::ref_ptr<EglGraphicsWindow> window = EglGraphicsWindow::create(width, height, reason);
    EXPECT_TRUE(window) << "no window to draw in: " << reason;
    return window;
}

HeadlessViewer::HeadlessViewer(int width, int height, osgViewer::ViewerBase::ThreadingModel threading)
    : window(makeWindow(width, height)), viewer(new osgViewer::Viewer)
{
    if (!window) return;
    viewer->setThreadingModel(threading);
    viewer->setKeyEventSetsDone(0);
    viewer->setLightingMode(osg::View::NO_LIGHT);
    osg::Camera& main = camera();
    window->attachTo(main);
    main.setProjectionMatrixAsPerspective(30.0, static_cast<double>(width) / height, 1.0, 10000.0);
    main.setClearColor(osg::Vec4(0, 0, 0, 1));
    main.setCullingMode(main.getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
    _reader = PictureReader::attach(*viewer);
}

HeadlessViewer::~HeadlessViewer()
{
    viewer->setDone(true);
    viewer->stopThreading();
}

void HeadlessViewer::show(osg::Node* scene)
{
    viewer->setSceneData(scene);
    viewer->realize();
    EXPECT_TRUE(viewer->isRealized());
}

osg::ref_ptr<osg::Image> HeadlessViewer::picture()
{
    osg::ref_ptr<osg::Image> image = _reader ? _reader->drawFrame(*viewer) : nullptr;
    if (!image) {
        ADD_FAILURE() << "the frame was not drawn";
        image = new osg::Image;
    }
    return image;
}

osg::Vec3ub pixel(const osg::Image& picture, int x, int y)
{
    if (x < 0 || y < 0 || x >= picture.s() || y >= picture.t()) {
        ADD_FAILURE() << "pixel " << x << ", " << y << " is outside the picture";
        return osg::Vec3ub(0, 0, 0);
    }
    const unsigned char* rgb = picture.data(static_cast<unsigned>(x), static_cast<unsigned>(y));
    return osg::Vec3ub(rgb[0], rgb[1], rgb[2]);
}

int countOf(const osg::Image& picture, const osg::Vec3ub& color)
{
    int count = 0;
    for (int y = 0; y < picture.t(); ++y) {
        for (int x = 0; x < picture.s(); ++x)
            count += pixel(picture, x, y) == color;
    }
    return count;
}

int countOtherThan(const osg::Image& picture, const osg::Vec3ub& background)
{
    return picture.s() * picture.t() - countOf(picture, background);
}

bool samePixels(const osg::Image& a, const osg::Image& b)
{
    return a.s() == b.s() && a.t() == b.t() && a.getTotalSizeInBytes() == b.getTotalSizeInBytes() &&
           std::memcmp(a.data(), b.data(), a.getTotalSizeInBytes()) == 0;
}
