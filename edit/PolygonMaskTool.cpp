#include <VelOsgDBBrx/PolygonMaskTool.h>

#include "osgutils/ClipPolygon.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

namespace VelOsgDBBrx {

namespace {

using VelOsgUtils::clipPolygon;

using Polygon = std::vector<osg::Vec2d>;

/// Fixed-point coordinates hold no far vertices: these are brought near first.
Polygon nearWindow(const Polygon& polygon, int width, int height)
{
    constexpr double kMargin = 16;
    Polygon near = clipPolygon(polygon, [](const osg::Vec2d& v) { return v.x() + kMargin; });
    near = clipPolygon(near, [width](const osg::Vec2d& v) { return width + kMargin - v.x(); });
    near = clipPolygon(near, [](const osg::Vec2d& v) { return v.y() + kMargin; });
    return clipPolygon(near, [height](const osg::Vec2d& v) { return height + kMargin - v.y(); });
}

bool isUsable(const Polygon& polygon)
{
    // Beyond this, differences of coordinates lose the window's pixels.
    constexpr double kFarthest = 1e12;
    return polygon.size() >= 3 && std::all_of(polygon.begin(), polygon.end(), [](const osg::Vec2d& v) {
               return std::abs(v.x()) <= kFarthest && std::abs(v.y()) <= kFarthest;
           });
}

/// Coordinates in steps of 1/256 pixel: so that who draws two polygons with a common edge covers no pixel
/// twice, rounded vertices decide and the arithmetic after that is exact.
struct FixedPoint
{
    static constexpr int64_t kOne = 256;

    explicit FixedPoint(const osg::Vec2d& v) : x(std::llrint(v.x() * kOne)), y(std::llrint(v.y() * kOne)) {}

    int64_t x;
    int64_t y;
};

/// The first pixel whose centre lies at a coordinate or beyond it.
int64_t firstPixel(int64_t coordinate)
{
    constexpr int64_t kJustBelowCentre = FixedPoint::kOne / 2 - 1;
    return (coordinate + kJustBelowCentre) >> 8;
}

int64_t floorDivide(int64_t dividend, int64_t divisor)
{
    const int64_t quotient = dividend / divisor;
    return quotient - (dividend % divisor < 0);
}

/// Turns over, in every row that the edge crosses, the first pixel right of it.
void turnOver(osg::Image& mask, FixedPoint top, FixedPoint bottom)
{
    if (top.y > bottom.y) std::swap(top, bottom);
    const int64_t first = std::max<int64_t>(firstPixel(top.y), 0);
    const int64_t end = std::min<int64_t>(firstPixel(bottom.y), mask.t());
    if (first >= end) return;

    // x = start + quotient, and remainder / height beyond that; both grow by a constant from row to row.
    const int64_t height = bottom.y - top.y;
    const int64_t width = bottom.x - top.x;
    const int64_t toCentre = (first * FixedPoint::kOne + FixedPoint::kOne / 2 - 1 - top.y) * width;
    int64_t x = top.x + floorDivide(toCentre, height);
    int64_t remainder = toCentre - (x - top.x) * height;
    const int64_t step = floorDivide(width * FixedPoint::kOne, height);
    const int64_t stepRemainder = width * FixedPoint::kOne - step * height;

    const int64_t columns = mask.s();
    const size_t pitch = mask.getRowStepInBytes();
    uint8_t* row = mask.data(0, static_cast<unsigned>(first));
    for (int64_t y = first; y < end; ++y, row += pitch) {
        const int64_t column = std::max<int64_t>(firstPixel(x), 0);
        if (column < columns) row[column] ^= 1;
        x += step;
        remainder += stepRemainder;
        if (remainder < height) continue;
        remainder -= height;
        ++x;
    }
}

/// Covers the pixels that have an odd number of turned ones at and left of them.
void fillRows(osg::Image& mask)
{
    for (int row = 0; row < mask.t(); ++row) {
        uint8_t* pixel = mask.data(0, row);
        uint8_t covered = 0;
        for (uint8_t* const end = pixel + mask.s(); pixel != end; ++pixel) {
            covered ^= *pixel;
            *pixel = static_cast<uint8_t>(-covered);
        }
    }
}

} // namespace

PolygonMaskTool::PolygonMaskTool(const PolygonMaskTool& other)
    : PixelBufferTool(other), _polygons(other.copyPolygons())
{
}

PolygonMaskTool& PolygonMaskTool::operator=(const PolygonMaskTool& other)
{
    std::vector<Polygon> polygons = other.copyPolygons();
    const VelThreads::Lock lock(_mutex);
    _polygons.swap(polygons);
    return *this;
}

std::vector<Polygon> PolygonMaskTool::copyPolygons() const
{
    const VelThreads::Lock lock(_mutex);
    return _polygons;
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
    osg::ref_ptr<osg::Image> mask = new osg::Image;
    mask->allocateImage(width, height, 1, GL_LUMINANCE, GL_UNSIGNED_BYTE);
    if (!mask->data()) return nullptr;
    mask->setOrigin(osg::Image::TOP_LEFT);
    std::memset(mask->data(), 0, mask->getTotalSizeInBytes());
    for (const Polygon& polygon : _polygons) {
        const Polygon near = nearWindow(polygon, width, height);
        for (size_t i = 0; i < near.size(); ++i)
            turnOver(*mask, FixedPoint(near[i]), FixedPoint(near[(i + 1) % near.size()]));
    }
    fillRows(*mask);
    return mask;
}

} // namespace VelOsgDBBrx
