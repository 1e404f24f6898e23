#include "edit/FrontSurface.h"

#include "edit/ReachedPoints.h"

#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>
#include <cmath>
#include <limits>

using VelOsgDBBrx::ScreenPlace;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kMostFields = 1 << 24;

/// Column of a camera's matrix that grows with the distance from the eye, and what makes it units of the
/// world: w in perspective, else z.
std::pair<int, double> depthOf(const osg::Matrixd& vpw)
{
    const double length = osg::Vec3d(vpw(0, 3), vpw(1, 3), vpw(2, 3)).length();
    if (length > 0) return {3, 1 / length};
    return {2, 1 / osg::Vec3d(vpw(0, 2), vpw(1, 2), vpw(2, 2)).length()};
}

/// The least of each element and its `radius` neighbours to each side.
void spreadLeast(const std::vector<double>& values, int radius, std::vector<double>& least)
{
    const int count = static_cast<int>(values.size());
    const int window = 2 * radius + 1;
    // The least of a window is that of two runs that meet at a multiple of its length.
    std::vector<double> fromLeft(values.size() + 2 * static_cast<size_t>(radius), kInfinity);
    std::copy(values.begin(), values.end(), fromLeft.begin() + radius);
    std::vector<double> fromRight = fromLeft;
    const int padded = static_cast<int>(fromLeft.size());
    for (int i = 1; i < padded; ++i)
        if (i % window) fromLeft[i] = std::min(fromLeft[i], fromLeft[i - 1]);
    for (int i = padded - 2; i >= 0; --i)
        if ((i + 1) % window) fromRight[i] = std::min(fromRight[i], fromRight[i + 1]);
    for (int i = 0; i < count; ++i)
        least[i] = std::min(fromRight[i], fromLeft[i + window - 1]);
}

} // namespace

FrontSurface::FrontSurface(const ScreenPlace& place)
    : _vpw(place.vpw), _windowHeight(place.height), _tolerance(*place.frontTolerance),
      _radius(place.frontRadius)
{
    osg::Vec2d low(place.width, place.height);
    osg::Vec2d high(0, 0);
    for (const osg::Vec2d& vertex : place.polygon)
        for (int axis : {0, 1}) {
            low[axis] = std::min(low[axis], vertex[axis]);
            high[axis] = std::max(high[axis], vertex[axis]);
        }
    // A pixel more to each side than the mask can cover.
    const double most[] = {double(place.width), double(place.height)};
    osg::Vec2d size;
    for (int axis : {0, 1}) {
        _corner[axis] = std::max(0.0, std::floor(low[axis]) - 1);
        size[axis] = std::max(1.0, std::min(most[axis], std::floor(high[axis]) + 2) - _corner[axis]);
    }
    _field = std::max(1.0, std::ceil(std::sqrt(size.x() * size.y() / kMostFields)));
    _columns = static_cast<int>(std::ceil(size.x() / _field));
    _rows = static_cast<int>(std::ceil(size.y() / _field));
    _nearest = std::vector<std::atomic<double>>(static_cast<size_t>(_columns) * static_cast<size_t>(_rows));
    for (std::atomic<double>& depth : _nearest)
        depth.store(kInfinity, std::memory_order_relaxed);
}

void FrontSurface::note(int32_t field, double depth)
{
    std::atomic<double>& nearest = _nearest[static_cast<size_t>(field)];
    double known = nearest.load(std::memory_order_relaxed);
    while (depth < known && !nearest.compare_exchange_weak(known, depth, std::memory_order_relaxed)) {
    }
}

uint64_t FrontSurface::add(const OctreeInfo& octree, const osg::Matrixd& localToWorld, const PointTest& test,
                           EditControl& control)
{
    const Projection projection(*this, octree.scale, localToWorld);
    const std::vector<CellData*> cells = test.cells();
    const int count = static_cast<int>(cells.size());
    uint64_t unreadable = 0;
#pragma omp parallel for schedule(static) num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(count))       \
    reduction(+ : unreadable)
    for (int i = 0; i < count; ++i) {
        if (control.isCancelled()) continue;
        unreadable += !forEachTested(octree, *cells[i], test,
                                     [&](const uint8_t* records, int length, const uint8_t* accepted) {
                                         int32_t fields[RecordBlock::kSize];
                                         double depths[RecordBlock::kSize];
                                         projection.project(RecordBlock(records, length), fields, depths);
                                         for (int j = 0; j < length; ++j)
                                             if (accepted[j]) note(fields[j], depths[j]);
                                     });
        control.addDone(1);
    }
    return unreadable;
}

void FrontSurface::close()
{
    const int radius = static_cast<int>(std::ceil(_radius / _field));
    if (radius == 0) return;
    const auto spread = [&](int lines, int length, size_t toLine, size_t toNext) {
#pragma omp parallel num_threads(VelOsgUtils::ThreadCount::halfOfProcessors(lines))
        {
            std::vector<double> values(static_cast<size_t>(length));
            std::vector<double> least(values.size());
#pragma omp for schedule(static)
            for (int line = 0; line < lines; ++line) {
                std::atomic<double>* const first = &_nearest[static_cast<size_t>(line) * toLine];
                for (size_t i = 0; i < values.size(); ++i)
                    values[i] = first[i * toNext].load(std::memory_order_relaxed);
                spreadLeast(values, radius, least);
                for (size_t i = 0; i < values.size(); ++i)
                    first[i * toNext].store(least[i], std::memory_order_relaxed);
            }
        }
    };
    spread(_rows, _columns, static_cast<size_t>(_columns), 1);
    spread(_columns, _rows, 1, static_cast<size_t>(_columns));
}

void FrontSurface::keep(const Projection& projection, const RecordBlock& block, uint8_t* accepted) const
{
    int32_t fields[RecordBlock::kSize];
    double depths[RecordBlock::kSize];
    projection.project(block, fields, depths);
    for (int i = 0; i < RecordBlock::kSize; ++i) {
        const double nearest = _nearest[static_cast<size_t>(fields[i])].load(std::memory_order_relaxed);
        accepted[i] &= static_cast<uint8_t>(depths[i] - nearest <= _tolerance);
    }
}

FrontSurface::Projection::Projection(const FrontSurface& surface, const osg::Vec3d& scale,
                                     const osg::Matrixd& localToWorld)
    : _columns(surface._columns), _rows(surface._rows)
{
    const osg::Matrixd m = osg::Matrixd::scale(scale) * localToWorld * surface._vpw;
    const auto [depthColumn, perUnit] = depthOf(surface._vpw);
    const double overW = depthColumn == 2 ? perUnit / surface._vpw(3, 3) : perUnit;
    for (int i = 0; i < 4; ++i) {
        _w[i] = m(i, 3);
        _column[i] = (m(i, 0) - surface._corner.x() * m(i, 3)) / surface._field;
        _row[i] = ((surface._windowHeight - surface._corner.y()) * m(i, 3) - m(i, 1)) / surface._field;
        _depth[i] = m(i, depthColumn) * overW;
    }
}

VELBRX_VECTOR_CLONES
void FrontSurface::Projection::project(const RecordBlock& block, int32_t* fields, double* depths) const
{
    const RecordBlock::Linear columnFactors = _column;
    const RecordBlock::Linear rowFactors = _row;
    const RecordBlock::Linear wFactors = _w;
    const RecordBlock::Linear depthFactors = _depth;
    const double columns = _columns;
    const double rows = _rows;
    const int32_t pitch = _columns;
    for (int i = 0; i < RecordBlock::kSize; ++i) {
        const double w = block.apply(wFactors, i);
        const double column = block.apply(columnFactors, i) / w;
        const double row = block.apply(rowFactors, i) / w;
        const bool inGrid = (w > 0) & (column > -1) & (column < columns) & (row > -1) & (row < rows);
        fields[i] =
            static_cast<int32_t>(inGrid ? row : 0.0) * pitch + static_cast<int32_t>(inGrid ? column : 0.0);
        depths[i] = block.apply(depthFactors, i);
    }
}
