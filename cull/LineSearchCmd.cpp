#include <VelOsgDBBrx/LineSearchCmd.h>

#include "cull/LineStrip.h"
#include "edit/CloudPlaces.h"
#include "edit/RecordScreenTest.h"
#include "edit/ScreenRegion.h"
#include "edit/StoreEdit.h"
#include "loading/PointRecords.h"
#include "loading/UnwrittenClasses.h"

#include <VelOsgDBBrx/PCViewerManager.h>

#include <algorithm>
#include <cstring>
#include <thread>

namespace VelOsgDBBrx {

namespace {

using Points = LineSearchCmd::Points;

/// A caller waits for the line, and nothing is changed: the search may have the whole machine.
[[maybe_unused]] int threadsFor(size_t cells)
{
    const size_t processors = std::max(1u, std::thread::hardware_concurrency());
    return static_cast<int>(std::clamp<size_t>(cells, 1, processors));
}

/// The part of the window that a line can cover, from the window's top.
std::vector<osg::Vec2d> boundsOf(const std::vector<osg::Vec2d>& line, double width, int windowWidth,
                                 int windowHeight)
{
    osg::Vec2d min(windowWidth, windowHeight);
    osg::Vec2d max(0, 0);
    for (const osg::Vec2d& vertex : line)
        for (int axis : {0, 1}) {
            min[axis] = std::min(min[axis], vertex[axis] - width / 2);
            max[axis] = std::max(max[axis], vertex[axis] + width / 2);
        }
    const osg::Vec2d from(std::max(min.x(), 0.0), std::max(min.y(), 0.0));
    const osg::Vec2d to(std::min<double>(max.x(), windowWidth), std::min<double>(max.y(), windowHeight));
    if (from.x() > to.x() || from.y() > to.y()) return {};
    return {osg::Vec2d(from.x(), windowHeight - from.y()), osg::Vec2d(to.x(), windowHeight - to.y())};
}

/// Finds the points of a store that are visible and under a strip.
class StoreSearch
{
public:
    StoreSearch(const OctreeInfo& octree, const osg::Matrixd& localToWindow,
                const std::vector<osg::Vec4d>& localPlanes, const LineStrip& strip,
                const std::bitset<256>& shownClasses)
        : _octree(octree), _strip(strip), _shownClasses(shownClasses),
          _recordToWindow(osg::Matrixd::scale(octree.scale) * localToWindow),
          _test(octree.scale, localToWindow * osg::Matrixd::scale(kTileShare, kTileShare, 1), localPlanes,
                strip.tiles(), false)
    {
    }

    /// False when some of the cell's records could not be mapped.
    bool search(const CellData& cell, Points& found) const
    {
        const ClassesPtr edited = UnwrittenClasses::instance().current(cell.identifier);
        return forEachRun(_octree, cell, [&](const uint8_t* records, int64_t count, uint32_t first) {
            for (int64_t done = 0; done < count; done += RecordScreenTest::kBlock) {
                const int block = static_cast<int>(std::min<int64_t>(RecordScreenTest::kBlock, count - done));
                searchBlock(records + done * kRecordSize, block,
                            edited ? edited->data() + first + done : nullptr, found);
            }
        });
    }

private:
    static constexpr double kTileShare = 1.0 / LineStrip::kTile;

    /// `edited`: the points' classes where they are not those of the records, else null.
    void searchBlock(const uint8_t* records, int count, const uint8_t* edited, Points& found) const
    {
        uint8_t accepted[RecordScreenTest::kBlock];
        _test.test(records, count, accepted);
        for (int i = 0; i < count; ++i) {
            if (!accepted[i]) continue;
            const uint8_t* record = records + i * kRecordSize;
            if ((record[kFlagByte] & kHiddenBits) || !_shownClasses[edited ? edited[i] : record[kClassByte]])
                continue;
            int32_t xyz[3];
            std::memcpy(xyz, record, sizeof xyz);
            const osg::Vec4d p = osg::Vec4d(xyz[0], xyz[1], xyz[2], 1) * _recordToWindow;
            const osg::Vec2d place(p.x() / p.w(), p.y() / p.w());
            if (!_strip.covers(place)) continue;
            LineEnHancement::LineEnHancementPoint point{place.x(), place.y(), p.z() / p.w(), 0};
            std::memcpy(&point.gpsTime, record + kGpsTimeByte, sizeof point.gpsTime);
            found.push_back(point);
        }
    }

    const OctreeInfo& _octree;
    const LineStrip& _strip;
    const std::bitset<256>& _shownClasses;
    osg::Matrixd _recordToWindow;
    RecordScreenTest _test; ///< accepts what lies on the strip's tiles and inside the clip planes
};

} // namespace

LineSearchCmd::LineSearchCmd(int barrierCount)
    : BaseCmd(barrierCount), _places(std::make_unique<CloudPlaces>())
{
}

LineSearchCmd::~LineSearchCmd() = default;

void LineSearchCmd::operator()(CullCmdManager*)
{
    _points.clear();
    report(search());
    block(0);
    PCViewerManager::getInstance()->requestRedraw(_uid);
}

void LineSearchCmd::reset(CullCmdManager*)
{
    _points.clear();
}

void LineSearchCmd::prepare()
{
    _places->note(_octreeInfos);
}

CmdResult LineSearchCmd::search()
{
    CmdResult result;
    const LineStrip strip(_line, _lineWidth, _width, _height);
    result.maskMissing = strip.isEmpty() || !strip.tiles().isValid();
    if (result.maskMissing || _vpw.isNaN()) return result;
    for (const osg::observer_ptr<OctreeInfo>& observed : _octreeInfos) {
        osg::ref_ptr<OctreeInfo> octree;
        if (!observed.lock(octree))
            ++result.storesGone;
        else if (octree->pointFile)
            searchStore(*octree, strip, result);
    }
    return result;
}

void LineSearchCmd::searchStore(OctreeInfo& octree, const LineStrip& strip, CmdResult& result)
{
    osg::Polytope::PlaneList planes;
    const osg::Matrixd localToWorld = _places->of(octree);
    const osg::Matrixd localToWindow = localToWorld * _vpw;
    if (!rectanglePlanes(boundsOf(_line, _lineWidth, _width, _height), _height, localToWindow, planes))
        return;
    const std::vector<osg::Vec4d> localPlanes = toLocal(_clipPlanes, localToWorld);
    planes.insert(planes.end(), localPlanes.begin(), localPlanes.end());
    const std::vector<CellData*> cells = cellsInside(octree, planes);
    const StoreSearch search(octree, localToWindow, localPlanes, strip, _shownClasses);
    const int count = static_cast<int>(cells.size());
    uint64_t unreadable = 0;
#pragma omp parallel for schedule(dynamic) num_threads(threadsFor(cells.size())) reduction(+ : unreadable)
    for (int i = 0; i < count; ++i) {
        Points found;
        if (!search.search(*cells[i], found)) ++unreadable;
#pragma omp critical(VelOsgDBBrxLineSearch)
        _points.insert(_points.end(), found.begin(), found.end());
    }
    result.cellsUnreadable += unreadable;
}

} // namespace VelOsgDBBrx
