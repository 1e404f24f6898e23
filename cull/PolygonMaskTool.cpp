#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

namespace VelOsgDBBrx {

namespace {

using Polygon = std::vector<osg::Vec2d>;
using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

/// The part of a polygon on the side of a line where `sign` * (vertex[axis] - bound) >= 0. What the even-odd
/// rule says of that side stays the same, also for a polygon that crosses itself.
Polygon clipped(const Polygon& polygon, int axis, double bound, double sign)
{
    Polygon kept;
    for (size_t i = 0; i < polygon.size(); ++i) {
        const osg::Vec2d& from = polygon[i];
        const osg::Vec2d& to = polygon[(i + 1) % polygon.size()];
        const double fromSide = sign * (from[axis] - bound);
        const double toSide = sign * (to[axis] - bound);
        if (fromSide >= 0) kept.push_back(from);
        if ((fromSide >= 0) != (toSide >= 0)) {
            osg::Vec2d crossing = from + (to - from) * (fromSide / (fromSide - toSide));
            crossing[axis] = bound;
            kept.push_back(crossing);
        }
    }
    return kept;
}

/// Cairo's coordinates are fixed-point with 24 bits before the point: far vertices are brought near first.
Polygon nearWindow(const Polygon& polygon, int width, int height)
{
    constexpr double kMargin = 16;
    Polygon near = clipped(polygon, 0, -kMargin, 1);
    near = clipped(near, 0, width + kMargin, -1);
    near = clipped(near, 1, -kMargin, 1);
    return clipped(near, 1, height + kMargin, -1);
}

bool isUsable(const Polygon& polygon)
{
    // Beyond this, differences of coordinates lose the window's pixels.
    constexpr double kFarthest = 1e12;
    return polygon.size() >= 3 && std::all_of(polygon.begin(), polygon.end(), [](const osg::Vec2d& v) {
               return std::abs(v.x()) <= kFarthest && std::abs(v.y()) <= kFarthest;
           });
}

void addPath(cairo_t* context, const Polygon& polygon)
{
    cairo_new_sub_path(context);
    for (const osg::Vec2d& vertex : polygon)
        cairo_line_to(context, vertex.x(), vertex.y());
    cairo_close_path(context);
}

} // namespace

PolygonMaskTool::PolygonMaskTool(const PolygonMaskTool& other)
    : PixelBufferTool(other), _polygons(other._polygons)
{
}

PolygonMaskTool& PolygonMaskTool::operator=(const PolygonMaskTool& other)
{
    _polygons = other._polygons;
    return *this;
}

bool PolygonMaskTool::acquire()
{
    _mutex.lock();
    return true;
}

void PolygonMaskTool::release()
{
    _mutex.unlock();
}

void PolygonMaskTool::clear()
{
    _polygons.clear();
}

void PolygonMaskTool::addPolygon(const std::vector<osg::Vec2d>& polygon)
{
    if (isUsable(polygon)) _polygons.push_back(polygon);
}

osg::ref_ptr<osg::Image> PolygonMaskTool::createMask(int width, int height)
{
    if (width < 1 || height < 1) return nullptr;
    // Cairo draws right into the image: both align rows to four bytes.
    constexpr int kRowAlignment = 4;
    osg::ref_ptr<osg::Image> mask = new osg::Image;
    mask->allocateImage(width, height, 1, GL_LUMINANCE, GL_UNSIGNED_BYTE, kRowAlignment);
    if (!mask->data()) return nullptr;
    mask->setOrigin(osg::Image::TOP_LEFT);
    std::memset(mask->data(), 0, mask->getTotalSizeInBytes());

    const Surface surface(cairo_image_surface_create_for_data(mask->data(), CAIRO_FORMAT_A8, width, height,
                                                              static_cast<int>(mask->getRowStepInBytes())),
                          cairo_surface_destroy);
    const Context context(cairo_create(surface.get()), cairo_destroy);
    cairo_set_antialias(context.get(), CAIRO_ANTIALIAS_NONE);
    cairo_set_fill_rule(context.get(), CAIRO_FILL_RULE_EVEN_ODD);
    for (const Polygon& polygon : _polygons)
        addPath(context.get(), nearWindow(polygon, width, height));
    cairo_fill(context.get());
    cairo_surface_flush(surface.get());
    return cairo_status(context.get()) == CAIRO_STATUS_SUCCESS ? mask : nullptr;
}

} // namespace VelOsgDBBrx
