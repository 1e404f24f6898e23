#include "viewer/WindowView.h"

#include <osg/GraphicsContext>

bool WindowView::mayCover(const std::vector<osg::Vec2d>& polygon, const osg::BoundingBoxd& box,
                          const osg::Matrixd& localToWorld) const
{
    const osg::Matrixd toWindow = localToWorld * vpw;
    osg::BoundingBoxd seen;
    for (unsigned i = 0; i < 8; ++i) {
        const osg::Vec4d corner = osg::Vec4d(box.corner(i), 1) * toWindow;
        if (corner.w() <= 0) return true; // reaches behind the camera, and may be anywhere
        seen.expandBy(corner.x() / corner.w(), corner.y() / corner.w(), 0);
    }
    osg::BoundingBoxd drawn;
    for (const osg::Vec2d& vertex : polygon)
        drawn.expandBy(vertex.x(), vertex.y(), 0);
    constexpr double kPixel = 1; // a mask has whole pixels
    return drawn.valid() && seen.xMin() <= drawn.xMax() + kPixel && seen.xMax() >= drawn.xMin() - kPixel &&
           seen.yMin() <= drawn.yMax() + kPixel && seen.yMax() >= drawn.yMin() - kPixel;
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
