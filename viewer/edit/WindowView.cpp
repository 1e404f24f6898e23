#include "viewer/edit/WindowView.h"

#include <osg/BoundingBox>
#include <osg/GraphicsContext>

#include <algorithm>
#include <cmath>

std::optional<WindowView> WindowView::widenedTo(std::vector<osg::Vec2d>& vertices, double margin) const
{
    constexpr double kMostPixels = 1 << 28;
    osg::Vec2d min(0, 0);
    osg::Vec2d max(width, height);
    for (const osg::Vec2d& vertex : vertices)
        for (int axis : {0, 1}) {
            min[axis] = std::min(min[axis], std::floor(vertex[axis] - margin));
            max[axis] = std::max(max[axis], std::ceil(vertex[axis] + margin));
        }
    const osg::Vec2d size = max - min;
    if (!(size.x() * size.y() <= kMostPixels)) return std::nullopt;
    for (osg::Vec2d& vertex : vertices)
        vertex -= min;
    const double below = max.y() - height; // pixels that the larger window has under this one
    return WindowView{vpw * osg::Matrixd::translate(-min.x(), below, 0), static_cast<int>(size.x()),
                      static_cast<int>(size.y())};
}

std::vector<osg::Vec2d> WindowView::turned(std::vector<osg::Vec2d> pixels) const
{
    for (osg::Vec2d& pixel : pixels)
        pixel = turned(pixel);
    return pixels;
}

osg::Matrixd WindowView::toClipOf(const std::vector<osg::Vec2d>& vertices, double margin) const
{
    osg::BoundingBoxd part;
    for (const osg::Vec2d& vertex : turned(vertices))
        part.expandBy(osg::Vec3d(vertex, 0));
    const osg::Vec3d middle = part.center();
    const osg::Vec3d half = (part._max - part._min) / 2 + osg::Vec3d(margin, margin, 0);
    return vpw * osg::Matrixd::translate(-middle.x(), -middle.y(), 0) *
           osg::Matrixd::scale(1 / half.x(), 1 / half.y(), 1);
}

std::optional<osg::Vec2d> WindowView::pixelOf(const osg::Vec3d& world) const
{
    const osg::Vec4d window = osg::Vec4d(world, 1) * vpw;
    if (window.w() <= 0) return std::nullopt;
    return turned(osg::Vec2d(window.x() / window.w(), window.y() / window.w()));
}

double pixelsPerUnit(const osg::Matrixd& vpw, const osg::Vec3d& place)
{
    const osg::Vec4d window = osg::Vec4d(place, 1) * vpw;
    if (!(window.w() > 0)) return 0;
    const double x = window.x() / window.w();
    osg::Vec3d alongX; // how x changes with the place
    for (int i = 0; i < 3; ++i)
        alongX[i] = (vpw(i, 0) - x * vpw(i, 3)) / window.w();
    return alongX.length();
}

std::optional<WindowView> windowViewOf(const osg::Camera& camera)
{
    const osg::GraphicsContext* context = camera.getGraphicsContext();
    if (!context || !context->getTraits() || !camera.getViewport()) return std::nullopt;
    WindowView view;
    view.vpw =
        camera.getViewMatrix() * camera.getProjectionMatrix() * camera.getViewport()->computeWindowMatrix();
    view.width = context->getTraits()->width;
    view.height = context->getTraits()->height;
    return view;
}
