#include <VelOsgDBBrx/LineEnHancement.h>

#include "edit/CloudPlaces.h"
#include "edit/StoreEdit.h"
#include "loading/PointRecords.h"

#include <VelOsgDBBrx/PCViewerManager.h>

#include <cairo.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#ifdef _OPENMP
#include <omp.h>
#endif

namespace VelOsgDBBrx {

namespace {

constexpr size_t kReservedPoints = 1000000;
constexpr double kLargestRaster = 32767; ///< pixels on a side; cairo makes no larger image

/// A caller waits for the line, and nothing is changed: the search may have the whole machine.
[[maybe_unused]] int allProcessors()
{
#ifdef _OPENMP
    return omp_get_num_procs();
#else
    return 1;
#endif
}

/// Window position of a local point; false when it is not in front of the camera.
bool project(const osg::Vec3d& local, const osg::Matrixd& localToWindow, osg::Vec3d& window)
{
    const osg::Vec4d p = osg::Vec4d(local, 1) * localToWindow;
    if (!(p.w() > 0)) return false;
    window.set(p.x() / p.w(), p.y() / p.w(), p.z() / p.w());
    return true;
}

/// Whether the cell's box, projected, may meet the window's rectangle [min, max]. A box that reaches behind
/// the camera has no rectangle of its own and may be anywhere.
bool meets(const OctreeInfo& octree, const CellData& cell, const osg::Matrixd& localToWindow,
           const osg::Vec2d& min, const osg::Vec2d& max)
{
    const VelBrx::CellBlock& block = cell.record;
    const osg::Vec3d center = osg::Vec3d(block.center[0], block.center[1], block.center[2]) - octree.offset;
    osg::Vec2d boxMin(DBL_MAX, DBL_MAX);
    osg::Vec2d boxMax(-DBL_MAX, -DBL_MAX);
    int behind = 0;
    for (int corner = 0; corner < 8; ++corner) {
        osg::Vec3d p = center;
        for (int axis = 0; axis < 3; ++axis)
            p[axis] += 0.5 * (1 + 1e-6) * block.size[axis] * (corner >> axis & 1 ? 1 : -1);
        osg::Vec3d window;
        if (!project(p, localToWindow, window)) {
            ++behind;
            continue;
        }
        for (int axis : {0, 1}) {
            boxMin[axis] = std::min(boxMin[axis], window[axis]);
            boxMax[axis] = std::max(boxMax[axis], window[axis]);
        }
    }
    if (behind == 8) return false;
    return behind > 0 ||
           (boxMin.x() <= max.x() && boxMax.x() >= min.x() && boxMin.y() <= max.y() && boxMax.y() >= min.y());
}

} // namespace

LineEnHancement::LineEnHancement(const std::vector<osg::Vec2d>& polyline, double resolution, double lineWidth,
                                 int mode, int barrierCount)
    : BaseCmd(barrierCount, false), _places(std::make_unique<CloudPlaces>()), _resolution(resolution),
      _mode(mode)
{
    drawRaster(polyline, lineWidth);
}

LineEnHancement::LineEnHancement(Invoke* invoke, int barrierCount)
    : BaseCmd(barrierCount, false), _places(std::make_unique<CloudPlaces>()), _invoke(invoke)
{
}

LineEnHancement::~LineEnHancement()
{
    if (_context) cairo_destroy(_context);
    if (_surface) cairo_surface_destroy(_surface);
}

void LineEnHancement::drawRaster(const std::vector<osg::Vec2d>& polyline, double lineWidth)
{
    if (polyline.empty()) return;
    _lineMin.set(DBL_MAX, DBL_MAX);
    _lineMax.set(-DBL_MAX, -DBL_MAX);
    for (const osg::Vec2d& vertex : polyline)
        for (int axis : {0, 1}) {
            _lineMin[axis] = std::min(_lineMin[axis], vertex[axis]);
            _lineMax[axis] = std::max(_lineMax[axis], vertex[axis]);
        }

    // The terms of the two formulas differ on purpose: a wide line loses two columns.
    const double width = std::abs(_lineMin.x() - _lineMax.x() + 1.0) / _resolution;
    const double height = std::abs(_lineMax.y() - _lineMin.y() + 1.0) / _resolution;
    if (!(width >= 0 && width <= kLargestRaster && height >= 0 && height <= kLargestRaster)) return;
    _rasterWidth = static_cast<int32_t>(width);
    _rasterHeight = static_cast<int32_t>(height);

    _surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, _rasterWidth, _rasterHeight);
    _context = cairo_create(_surface);
    cairo_set_source_rgb(_context, 1, 1, 1);
    cairo_rectangle(_context, 0, 0, _rasterWidth, _rasterHeight);
    cairo_fill(_context);
    cairo_set_source_rgb(_context, 0, 0, 0);
    cairo_set_line_width(_context, lineWidth / _resolution);
    for (const osg::Vec2d& vertex : polyline) // the first line_to of a path moves
        cairo_line_to(_context, (vertex.x() - _lineMin.x() + 0.5) / _resolution,
                      (vertex.y() - _lineMin.y() + 0.5) / _resolution);
    cairo_stroke(_context);
    cairo_surface_flush(_surface);
    if (cairo_status(_context) != CAIRO_STATUS_SUCCESS) return;
    _bits = cairo_image_surface_get_data(_surface);
    _stride = cairo_image_surface_get_stride(_surface);
}

void LineEnHancement::operator()(CullCmdManager* manager)
{
    calc(manager);
}

void LineEnHancement::prepare()
{
    _places->note(_octreeInfos);
}

void LineEnHancement::reset(CullCmdManager*)
{
    _points.clear();
}

void LineEnHancement::calc(CullCmdManager*)
{
    CmdResult result;
    _finished = false;
    _points.clear();
    if (_invoke)
        _invoke->invoke(*this);
    else if (_bits) {
        _points.reserve(kReservedPoints);
        for (const osg::observer_ptr<OctreeInfo>& observed : _octreeInfos) {
            osg::ref_ptr<OctreeInfo> octree;
            if (observed.lock(octree))
                searchStore(*octree, result);
            else
                ++result.storesGone;
        }
    } else
        result.maskMissing = true;
    _finished = true;
    report(result);
    block(0);
    PCViewerManager::getInstance()->requestRedraw(_uid);
}

bool LineEnHancement::isOnLine(const osg::Vec3d& window) const
{
    const double column = (window.x() - _lineMin.x() + 0.5) / _resolution;
    const double row = (window.y() - _lineMin.y() + 0.5) / _resolution;
    // The first column and row never count.
    if (!(column >= 1 && column < _rasterWidth && row >= 1 && row < _rasterHeight)) return false;
    return _bits[static_cast<ptrdiff_t>(_stride) * static_cast<int>(row) + 4 * static_cast<int>(column)] == 0;
}

void LineEnHancement::searchRun(const uint8_t* records, int64_t count, const osg::Matrixd& recordToWindow,
                                std::vector<LineEnHancementPoint>& found) const
{
    for (int64_t i = 0; i < count; ++i) {
        const uint8_t* record = records + i * kRecordSize;
        if (_mode == VISIBLE_POINTS && (record[kFlagByte] & kHiddenBits)) continue;
        int32_t xyz[3];
        std::memcpy(xyz, record, sizeof xyz);
        osg::Vec3d window;
        if (!project(osg::Vec3d(xyz[0], xyz[1], xyz[2]), recordToWindow, window) || !isOnLine(window))
            continue;
        LineEnHancementPoint point{window.x(), window.y(), window.z(), 0};
        std::memcpy(&point.gpsTime, record + kGpsTimeByte, sizeof point.gpsTime);
        found.push_back(point);
    }
}

void LineEnHancement::searchStore(OctreeInfo& octree, CmdResult& result)
{
    if (!octree.pointFile) return;
    const osg::Matrixd localToWindow = _places->of(octree) * _vpw;
    const osg::Matrixd recordToWindow = osg::Matrixd::scale(octree.scale) * localToWindow;
    const osg::Vec2d rasterMin = _lineMin - osg::Vec2d(1, 1);
    const osg::Vec2d rasterMax = _lineMin + osg::Vec2d(_rasterWidth, _rasterHeight) * _resolution;
    std::vector<CellData*> cells = allCells(octree);
    cells.erase(std::remove_if(cells.begin(), cells.end(),
                               [&](const CellData* cell) {
                                   return !meets(octree, *cell, localToWindow, rasterMin, rasterMax);
                               }),
                cells.end());

    const int count = static_cast<int>(cells.size());
    uint64_t unreadable = 0;
#pragma omp parallel for schedule(static) num_threads(allProcessors()) reduction(+ : unreadable)
    for (int i = 0; i < count; ++i) {
        std::vector<LineEnHancementPoint> found;
        const bool readable =
            forEachRun(octree, *cells[i], [&](const uint8_t* records, int64_t run, uint32_t) {
                searchRun(records, run, recordToWindow, found);
            });
        if (!readable) ++unreadable;
#pragma omp critical(VelOsgDBBrxLinePoints)
        _points.insert(_points.end(), found.begin(), found.end());
    }
    result.cellsUnreadable += unreadable;
}

} // namespace VelOsgDBBrx
