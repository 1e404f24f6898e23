#include <VelOsgDBBrx/PolygonMaskTool.h>

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
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

/// Turns over every pixel between an edge and the line x = `left`, which it does not reach beyond.
void turnOver(cairo_t* context, double left, const osg::Vec2d& from, const osg::Vec2d& to)
{
    cairo_move_to(context, left, from.y());
    cairo_line_to(context, from.x(), from.y());
    cairo_line_to(context, to.x(), to.y());
    cairo_line_to(context, left, to.y());
    cairo_close_path(context);
    cairo_fill(context);
}

/// Covers the pixels that lie left of an odd number of edges. Filled at once, a polygon without antialiasing
/// would lose its gaps of one pixel: cairo joins what it covers left and right of them.
void fill(cairo_t* context, const Polygon& polygon)
{
    double left = std::numeric_limits<double>::max();
    for (const osg::Vec2d& vertex : polygon)
        left = std::min(left, vertex.x());
    for (size_t i = 0; i < polygon.size(); ++i)
        turnOver(context, left, polygon[i], polygon[(i + 1) % polygon.size()]);
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
    cairo_set_operator(context.get(), CAIRO_OPERATOR_XOR);
    for (const Polygon& polygon : _polygons)
        fill(context.get(), nearWindow(polygon, width, height));
    cairo_surface_flush(surface.get());
    return cairo_status(context.get()) == CAIRO_STATUS_SUCCESS ? mask : nullptr;
}

} // namespace VelOsgDBBrx
