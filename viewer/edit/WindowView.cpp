#include "viewer/edit/WindowView.h"

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
    return WindowView{vpw * osg::Matrixd::translate(-min.x(), -min.y(), 0), static_cast<int>(size.x()),
                      static_cast<int>(size.y())};
}

std::vector<osg::Vec2d> WindowView::fromTop(std::vector<osg::Vec2d> vertices) const
{
    for (osg::Vec2d& vertex : vertices)
        vertex.y() = height - vertex.y();
    return vertices;
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
