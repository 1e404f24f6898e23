#include "viewer/window/Views.h"

#include <algorithm>

namespace {

/// Of a window that is smaller than its panels.
constexpr int kSmallest = 1; ///< pixels

/// Draw threads may still use the viewport of the last frame: the camera gets another one.
void place(osg::Camera& camera, int x, int y, int width, int height)
{
    const osg::Viewport* const now = camera.getViewport();
    if (now && now->x() == x && now->y() == y && now->width() == width && now->height() == height) return;
    camera.setViewport(new osg::Viewport(x, y, width, height));
    camera.setProjectionMatrix(projectionOf(Lens(), static_cast<double>(width) / height));
}

} // namespace

Views::Views(osgViewer::Viewer& viewer) : _viewer(viewer) {}

Sight Views::main() const
{
    return {_viewer.getCamera()};
}

Sight Views::under(double, double) const
{
    return main();
}

std::vector<Sight> Views::all() const
{
    return {main()};
}

void Views::setArea(int x, int y, int width, int height)
{
    place(*_viewer.getCamera(), x, y, std::max(width, kSmallest), std::max(height, kSmallest));
}
