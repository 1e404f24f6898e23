#include "lod/LodPass.h"

#include "loading/CellLeaf.h"
#include "lod/PointCloudLOD.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgUtils/ThreadCount.h>

#include <OpenThreads/ScopedLock>

#include <algorithm>
#include <limits>
#include <new>

using CompileSet = osgUtil::IncrementalCompileOperation::CompileSet;

LodPass::LodPass(osgUtil::IncrementalCompileOperation* incremental,
                 VelOsgUtils::DecrementalCompileOperation* decremental)
    : _incremental(incremental),
      _ownIncremental(dynamic_cast<VelOsgDBBrx::VelIncrementalCompileOperation*>(incremental)),
      _decremental(decremental)
{
}

LodPass::LodPass(const LodPass& other) : LodPass(other._incremental, other._decremental) {}

LodPass& LodPass::operator=(const LodPass& other)
{
    clear();
    _incremental = other._incremental;
    _ownIncremental = other._ownIncremental;
    _decremental = other._decremental;
    return *this;
}

void LodPass::clear()
{
    for (size_t i = 0; i < _levelCount; ++i) {
        _levels[i].wanted.clear();
        _levels[i].points = 0;
    }
    for (size_t i = 0; i < _viewCount; ++i) {
        for (size_t level = 0; level < _levelCount; ++level) {
            _views[i].levels[level].wanted.clear();
            _views[i].levels[level].points = 0;
        }
        _views[i].points = _views[i].spent = 0;
    }
    _levelCount = 0;
    _viewCount = 0;
    _wantedByViews = 0;
    _removals.clear();
    _loads.clear();
}

CellTable& LodPass::cellTable(OctreeInfo& octree)
{
    if (!octree.cellTable) octree.cellTable = new CellTable(octree);
    return *octree.cellTable;
}

void LodPass::removeAll(OctreeInfo& octree)
{
    CellTable& table = cellTable(octree);
    const size_t removals = _removals.size();
    remove({&table, table.all()});
    sortRemovals(removals);
}

void LodPass::abandon(OctreeInfo& octree, osgUtil::IncrementalCompileOperation* incremental)
{
    CellTable& table = cellTable(octree);
    table.forEach(table.all(), true, [&](size_t cell) {
        table.setLoaded(cell, false);
        CellData& data = table.data(cell);
        withdrawCompileSet(data, incremental);
        osg::ref_ptr<osg::Group> group;
        data.group.lock(group);
        if (auto* cloud = dynamic_cast<PointCloudLOD*>(group.get())) cloud->addOrphan(data.node);
        data.node = nullptr;
    });
}

void LodPass::remove(const Part& part)
{
    part.table->forEach(part.cells, true, [&](size_t cell) { _removals.push_back({part.table, cell}); });
}

/// Cells of one octree leave in depth-first order.
void LodPass::sortRemovals(size_t from)
{
    std::sort(_removals.begin() + static_cast<std::ptrdiff_t>(from), _removals.end(),
              [](const Place& a, const Place& b) { return a.table->place(a.cell) < b.table->place(b.cell); });
}

void LodPass::admitLevels(uint64_t maximumPoints)
{
    uint64_t accumulated = 0;
    for (size_t i = 0; i < _levelCount; ++i) {
        const Level& level = _levels[i];
        if (i > 0 && accumulated + level.points >= maximumPoints) {
            for (const Part& part : level.wanted)
                remove(part);
            continue;
        }
        accumulated += level.points;
        admit(level);
    }
}

void LodPass::admitAllLevels()
{
    for (size_t i = 0; i < _levelCount; ++i)
        admit(_levels[i]);
}

void LodPass::admit(const Level& level)
{
    for (const Part& part : level.wanted)
        part.table->forEach(part.cells, false, [&](size_t cell) { _loads.push_back({part.table, cell}); });
}

void LodPass::beginView()
{
    if (_viewCount == _views.size()) _views.emplace_back();
    ++_viewCount;
}

void LodPass::admitViews(uint64_t maximumPoints)
{
    for (size_t i = 0; i < _viewCount; ++i)
        countPoints(_views[i]);
    std::sort(_views.begin(), _views.begin() + static_cast<std::ptrdiff_t>(_viewCount),
              [](const View& a, const View& b) { return a.points < b.points; });
    divide(maximumPoints);
    uint64_t accumulated = 0;
    for (size_t level = 0; level < _levelCount; ++level)
        for (size_t i = 0; i < _viewCount; ++i)
            admit(_views[i], level, maximumPoints, accumulated);
}

void LodPass::countPoints(View& view) const
{
    for (size_t level = 0; level < _levelCount; ++level) {
        double& points = view.levels[level].points;
        for (const auto& [table, cells] : view.levels[level].wanted)
            for (size_t cell = cells.first; cell < cells.end; ++cell)
                points += static_cast<double>(table->points(cell)) / table->views[cell];
        view.points += points;
    }
}

/// The views stand in the order of what they want, the most modest first.
void LodPass::divide(uint64_t maximumPoints)
{
    auto left = static_cast<double>(maximumPoints);
    for (size_t i = 0; i < _viewCount; ++i) {
        const double equal = left / static_cast<double>(_viewCount - i);
        const bool modest = _views[i].points <= equal;
        _views[i].share = modest ? std::numeric_limits<double>::infinity() : equal;
        left -= modest ? _views[i].points : equal;
    }
}

void LodPass::admit(View& view, size_t level, uint64_t maximumPoints, uint64_t& accumulated)
{
    const ViewLevel& wants = view.levels[level];
    uint64_t points = 0; // that no other view has brought in
    for (const auto& [table, cells] : wants.wanted)
        for (size_t cell = cells.first; cell < cells.end; ++cell)
            if (!table->admitted[cell]) points += static_cast<uint64_t>(table->points(cell));
    if (level > 0 && (view.spent + wants.points >= view.share || accumulated + points >= maximumPoints))
        return;
    view.spent += wants.points;
    accumulated += points;
    for (const Part& part : wants.wanted)
        admitCells(part);
}

/// Of those that another view brought in already, none is read twice.
void LodPass::admitCells(const Part& part)
{
    std::vector<uint8_t>& admitted = part.table->admitted;
    part.table->forEach(part.cells, false, [&](size_t cell) {
        if (!admitted[cell]) _loads.push_back({part.table, cell});
    });
    std::fill(admitted.begin() + static_cast<std::ptrdiff_t>(part.cells.first),
              admitted.begin() + static_cast<std::ptrdiff_t>(part.cells.end), uint8_t{1});
}

void LodPass::removeOthers(OctreeInfo& octree)
{
    CellTable& table = cellTable(octree);
    const size_t removals = _removals.size();
    table.forEach(table.all(), true, [&](size_t cell) {
        if (table.admitted.empty() || !table.admitted[cell]) _removals.push_back({&table, cell});
    });
    sortRemovals(removals);
    table.views.clear();
    table.admitted.clear();
}

uint64_t LodPass::wantedPoints() const
{
    uint64_t points = _wantedByViews;
    for (size_t i = 0; i < _levelCount; ++i)
        points += _levels[i].points;
    return points;
}

void LodPass::unload()
{
    for (const Place& place : _removals) {
        place.table->setLoaded(place.cell, false);
        CellData& data = place.table->data(place.cell);
        if (data.node) unload(data);
    }
}

void LodPass::unload(CellData& data)
{
    withdrawCompileSet(data, _incremental);
    osg::ref_ptr<osg::Group> group;
    data.group.lock(group);
    if (_decremental) _decremental->add(group, data.node);
    data.node = nullptr;
}

/// A set that the graphics thread is compiling at this moment is out of reach of the base's `remove` and
/// would be merged all the same. Without an attachment point the merge passes it by; the merge reads that
/// under the mutex taken here, so afterwards the leaf either is in the scene already or never gets there.
void LodPass::withdrawCompileSet(CellData& data, osgUtil::IncrementalCompileOperation* incremental)
{
    osg::ref_ptr<CompileSet> compileSet;
    data.compileSet.lock(compileSet);
    data.compileSet = nullptr;
    if (!compileSet || !incremental) return;
    {
        OpenThreads::ScopedLock<OpenThreads::Mutex> lock(*incremental->getCompiledMutex());
        compileSet->_attachmentPoint = nullptr;
    }
    incremental->remove(compileSet);
    if (auto* leaf = dynamic_cast<CellLeaf*>(data.node.get())) {
        const VelThreads::Lock lock(leaf->lock);
        if (leaf->compileSet == compileSet.get()) leaf->compileSet = nullptr;
    }
}

bool LodPass::load(const std::atomic<bool>& abort)
{
    const auto count = static_cast<int64_t>(_loads.size());
    if (count == 0) return true;
    [[maybe_unused]] const int threads =
        VelOsgUtils::ThreadCount::halfOfProcessors(static_cast<int>(std::min<int64_t>(count, 4096)));
    std::atomic<bool> complete{true};
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t i = 0; i < count; ++i) {
        if (abort)
            complete = false;
        else
            load(_loads[static_cast<size_t>(i)].table->data(_loads[static_cast<size_t>(i)].cell));
    }
    for (const Place& place : _loads)
        place.table->setLoaded(place.cell, place.table->data(place.cell).node.valid());
    return complete;
}

/// A cell that cannot be read now stays as it is; later passes try again.
void LodPass::load(CellData& data)
{
    osg::ref_ptr<osg::Node> node;
    try {
        node = VelOsgDBBrx::PCDataManager::getInstance()->acquireNodeOrCreate(&data);
    } catch (const std::bad_alloc&) {
        return;
    }
    if (!node || node == data.node) return;
    if (data.node) unload(data);
    compile(data, *node);
}

void LodPass::compile(CellData& data, osg::Node& node)
{
    osg::ref_ptr<osg::Group> group;
    data.group.lock(group);
    // The leaf may be wanted again before its removal was done: it then stays, and the merge finds it there.
    if (_decremental) _decremental->withdraw(group, &node);

    osg::ref_ptr<CompileSet> compileSet = new CompileSet(group, &node);
    data.node = &node;
    data.compileSet = compileSet;
    if (auto* leaf = dynamic_cast<CellLeaf*>(&node)) {
        const VelThreads::Lock lock(leaf->lock);
        leaf->compileSet = compileSet;
        leaf->cell = &data;
    }
    if (_ownIncremental)
        _ownIncremental->pushBack(compileSet);
    else if (_incremental)
        _incremental->add(compileSet, true);
}
