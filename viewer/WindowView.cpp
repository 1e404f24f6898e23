#include "viewer/WindowView.h"

#include <osg/GraphicsContext>

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
