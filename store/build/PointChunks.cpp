#include "store/build/PointChunks.h"

#include "store/ByteIo.h"
#include "store/LasLayout.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr size_t kCoordinatesLength = 12;

/// The room of a candidate, in points of a chunk: candidates stay in memory, and about as many octree nodes.
constexpr uint64_t kCandidateShare = 16;

constexpr uint16_t kWiden = 257; ///< takes 0 to 255 to 0 to 65535

/// The level that `assignLevels` leaves to be decided for the points of a chunk, -1 for none.
int openLevel(const Chunk& chunk)
{
    return chunk.digits > kGridDigits ? static_cast<int>(chunk.digits - kGridDigits) : -1;
}

} // namespace

/// The points of a chunk, sorted by column code, and their ordinals by index.
struct PointChunks::Levelled
{
    explicit Levelled(uint64_t count)
        : points(uninitialised<TreePoint>(count)), scratch(uninitialised<TreePoint>(count)),
          ordinals(uninitialised<uint64_t>(count))
    {
    }

    std::unique_ptr<TreePoint[]> points;
    std::unique_ptr<TreePoint[]> scratch;
    std::unique_ptr<uint64_t[]> ordinals;
};

PointChunks::PointChunks(const SourceSet& sources, const StoreGrid& grid, const ChunkPlan& plan,
                         const BuildMemory& memory, PointSpool& spool)
    : _sources(sources), _grid(grid), _plan(plan), _chunks(plan.chunks()), _spool(spool), _places(grid),
      _count(sources.pointCount()), _widensColors(sources.hasNarrowColors()), _memory(memory),
      _gate(memory.pointsAtOnce)
{
}

Status PointChunks::load(BuildRun& run)
{
    const std::vector<SourceSet::Part> parts = _sources.parts();
    StatisticsCollector all(_count);
    Status status = run.forEach(parts.size(), [&](size_t i) {
        StatisticsCollector statistics(_count);
        const BuildSource& source = _sources.sources()[parts[i].source];
        Status loaded = source.points->readPart(parts[i].index, [&](const PointBatch& batch) {
            const Status loadedBatch = loadBatch(parts[i].source, batch, statistics);
            const Status goesOn = run.step(batch.records.size() / source.format.recordLength());
            return loadedBatch ? goesOn : loadedBatch;
        });
        const std::lock_guard lock(_mutex);
        all.add(statistics);
        return loaded;
    });
    if (status) status = _spool.flush();
    _statistics = all.finish(_grid);
    return status;
}

Status PointChunks::loadBatch(size_t source, const PointBatch& batch, StatisticsCollector& statistics)
{
    const RecordFormat& format = _sources.sources()[source].format;
    const uint64_t first = _sources.sources()[source].firstOrdinal + batch.first;
    const size_t sourceLength = format.recordLength();
    const size_t count = batch.records.size() / sourceLength;
    const size_t stride = _spool.restLength(source);
    const bool isExact = _grid.isExact(source);
    const auto recordMemory = uninitialised<uint8_t>(count * kPointSize);
    uint8_t* const records = recordMemory.get();
    std::vector<uint8_t> flags(count);
    std::vector<uint8_t> rest(count * stride);
    if (!isExact)
        for (size_t i = 0; i < count; ++i)
            std::memcpy(&rest[i * stride], &batch.records[i * sourceLength], kCoordinatesLength);
    format.decode(batch.records.data(), count, records, flags.data(),
                  isExact ? rest.data() : rest.data() + kCoordinatesLength, stride);
    _grid.mapRecords(source, records, count);
    if (_widensColors) widenColors(records, count);
    statistics.add(records, count, first);

    std::vector<uint8_t> classes(count);
    std::vector<uint32_t> chunks(count);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* const record = records + i * kPointSize;
        classes[i] = record[kClass];
        chunks[i] = static_cast<uint32_t>(
            _plan.chunkOf(_places.columnCode(loadLe<int32_t>(record + kX), loadLe<int32_t>(record + kY), 0)));
    }
    Status status = _spool.append(records, chunks, first);
    if (status) status = _spool.writeFlags(first, flags);
    if (status) status = _spool.writeClasses(first, classes);
    if (status) status = _spool.writeRest(source, batch.first * stride, rest);
    return status;
}

void PointChunks::widenColors(uint8_t* records, size_t count) const
{
    for (size_t i = 0; i < count; ++i, records += kPointSize)
        for (size_t color : {kRed, kGreen, kBlue})
            storeLe(records + color, static_cast<uint16_t>(loadLe<uint16_t>(records + color) * kWiden));
}

/// Reads the points of a chunk and decides their levels, but for `openLevel`.
Status PointChunks::assign(const Chunk& chunk, Levelled& levelled) const
{
    const uint64_t count = chunk.pointCount;
    {
        const auto items = uninitialised<uint8_t>(count * _spool.itemSize());
        if (Status status = _spool.readItems(chunk, items.get()); !status) return status;
        for (uint64_t i = 0; i < count; ++i) {
            const uint8_t* const item = &items[i * _spool.itemSize()];
            levelled.ordinals[i] = _spool.ordinal(item);
            levelled.points[i] = {_places.columnCode(loadLe<int32_t>(item + kX), loadLe<int32_t>(item + kY),
                                                     loadLe<int32_t>(item + kZ)),
                                  static_cast<uint32_t>(i), 0};
        }
    }
    sortByCode(levelled.points.get(), count, levelled.scratch.get(), levelled.ordinals.get());
    assignLevels(levelled.points.get(), count, levelled.ordinals.get(), std::max(chunk.digits, kGridDigits));
    return {};
}

/// Decides the coarse levels of the points whose columns of level 0's grid do not lie in one chunk.
Status PointChunks::assignCandidates(BuildRun& run)
{
    uint64_t count = 0; // guarded by _mutex; no more are kept than fit
    Status status = run.forEach(_chunks.size(), [&](size_t i) -> Status {
        const Chunk& chunk = _chunks[i];
        if (openLevel(chunk) < 0) return {};
        const PointGate::Room room(_gate, chunk.pointCount);
        Levelled levelled(chunk.pointCount);
        if (Status assigned = assign(chunk, levelled); !assigned) return assigned;
        const std::lock_guard lock(_mutex);
        for (uint64_t p = 0; p < chunk.pointCount; ++p) {
            const TreePoint& point = levelled.points[p];
            if (static_cast<int>(point.level) != openLevel(chunk)) continue;
            if (++count * kCandidateShare <= _memory.pointsAtOnce)
                _candidates.push_back({point.code, levelled.ordinals[point.index], 0});
        }
        return {};
    });
    if (status) status = _memory.checkTogether(count, kCandidateShare);
    if (!status || _candidates.empty()) return status;

    std::sort(_candidates.begin(), _candidates.end(),
              [](const Candidate& a, const Candidate& b) { return a.ordinal < b.ordinal; });
    Levelled levelled(_candidates.size());
    for (size_t i = 0; i < _candidates.size(); ++i) {
        levelled.ordinals[i] = _candidates[i].ordinal;
        levelled.points[i] = {_candidates[i].code, static_cast<uint32_t>(i), 0};
    }
    sortByCode(levelled.points.get(), _candidates.size(), levelled.scratch.get(), levelled.ordinals.get());
    // A point that a grid wants is wanted by all finer ones too among fewer points, so that these change
    // nothing here.
    assignLevels(levelled.points.get(), _candidates.size(), levelled.ordinals.get());
    for (size_t i = 0; i < _candidates.size(); ++i)
        _candidates[levelled.points[i].index].level = levelled.points[i].level;
    return {};
}

Status PointChunks::sort(BuildRun& run)
{
    if (Status status = assignCandidates(run); !status) return status;
    _nodes.resize(_chunks.size());
    Status status = run.forEach(_chunks.size(), [&](size_t i) {
        const unsigned digits = _chunks[i].digits;
        if (Status failed = divide(i, [digits](const TreeNode&) { return NodeFloor::usual(digits); });
            !failed)
            return failed;
        run.done(_chunks[i].pointCount);
        const std::lock_guard lock(_mutex);
        for (const DividedNode& divided : _nodes[i])
            _shared.add(digits, divided.node.code, divided.node.counts);
        return Status();
    });
    if (status) status = run.forEach(_chunks.size(), [&](size_t i) { return settle(i); });
    if (!status) return status;
    countShared();
    status = run.forEach(_chunks.size(), [&](size_t i) { return orderLarge(i); });
    _candidates = {};
    _shared = {};
    if (status) placeCells();
    return status;
}

/// The points of a chunk by Morton code, with all their levels.
Status PointChunks::sortMorton(const Chunk& chunk, Levelled& levelled) const
{
    if (Status status = assign(chunk, levelled); !status) return status;
    TreePoint* const points = levelled.points.get();
    for (uint64_t i = 0; i < chunk.pointCount; ++i) {
        if (static_cast<int>(points[i].level) == openLevel(chunk)) {
            const uint64_t ordinal = levelled.ordinals[points[i].index];
            points[i].level =
                std::lower_bound(_candidates.begin(), _candidates.end(), ordinal,
                                 [](const Candidate& a, uint64_t value) { return a.ordinal < value; })
                    ->level;
        }
        points[i].code = mortonCodeOf(points[i].code);
    }
    sortByCode(points, chunk.pointCount, levelled.scratch.get(), levelled.ordinals.get());
    return {};
}

/// Divides the nodes of a chunk, of which the cells above leave what `floorOf` tells.
template <typename FloorOf>
Status PointChunks::divide(size_t chunk, const FloorOf& floorOf)
{
    const Chunk& divided = _chunks[chunk];
    const PointGate::Room room(_gate, divided.pointCount);
    Levelled levelled(divided.pointCount);
    if (Status status = sortMorton(divided, levelled); !status) return status;
    TreePoint* const points = levelled.points.get();
    const auto order = uninitialised<uint32_t>(divided.pointCount);
    _nodes[chunk].clear();
    for (const TreeNode& node : nodesOf(points, divided.pointCount, divided.digits))
        _nodes[chunk].push_back(
            {node, divideIntoCells(points, node, divided.digits, floorOf(node), order.get() + node.begin)});
    return _spool.writeOrder(divided, order.get());
}

/// What the cells above leave of a node of a chunk.
NodeFloor PointChunks::floorOf(size_t chunk, const TreeNode& node) const
{
    return _shared.floorOf(_chunks[chunk].digits, node.code, node.counts);
}

/// Gives the points of a chunk to the cells above that take them, now that those are known. It was divided as
/// is usual; where that was wrong it is divided again.
Status PointChunks::settle(size_t chunk)
{
    const unsigned digits = _chunks[chunk].digits;
    for (auto& [node, cells] : _nodes[chunk]) {
        const NodeFloor floor = floorOf(chunk, node);
        if (floor.level == digits) continue;
        if (floor.level <= kMaxLevel || floor.takers[digits] != floor.takers[kMaxLevel])
            return divide(chunk, [&](const TreeNode& other) { return floorOf(chunk, other); });
        for (TreeCell& cell : cells) {
            const uint8_t taker = floor.takers[std::min<unsigned>(cell.level, digits)];
            cell = {taker, node.code >> 3 * (digits - taker), cell.pointCount};
        }
    }
    return {};
}

/// Adds up what cells get of several chunks.
void PointChunks::countShared()
{
    for (size_t i = 0; i < _chunks.size(); ++i)
        for (const DividedNode& divided : _nodes[i])
            for (const TreeCell& cell : divided.cells)
                if (cell.level < _chunks[i].digits) _sharedCounts[{cell.level, cell.code}] += cell.pointCount;
}

/// Whether a cell is one that chunks share and that may not fit into memory.
bool PointChunks::isLarge(const TreeCell& cell) const
{
    const auto entry = _sharedCounts.find({cell.level, cell.code});
    return entry != _sharedCounts.end() && entry->second > _memory.chunkPoints;
}

/// Brings the points that a node gives to a large cell into one run. `settle` may have left several.
Status PointChunks::orderLarge(size_t chunk)
{
    const auto isSplit = [this](const TreeCell& a, const TreeCell& b) {
        return a.level == b.level && a.code == b.code && isLarge(a);
    };
    for (const DividedNode& divided : _nodes[chunk])
        if (std::adjacent_find(divided.cells.begin(), divided.cells.end(), isSplit) != divided.cells.end())
            return divide(chunk, [&](const TreeNode& node) { return floorOf(chunk, node); });
    return {};
}

/// Points that a node gives to a large cell. They are neighbours in the cell's order, as no other chunk has
/// points of the node.
struct PointChunks::LargeCellPart
{
    CellKey cell;
    uint64_t start; ///< the node's first Morton code
    TreeCell* points;

    bool operator<(const LargeCellPart& other) const
    {
        return cell != other.cell ? cell < other.cell : start < other.start;
    }
};

/// Gives all cells their places in the store, and those that are gathered places in the spool.
void PointChunks::placeCells()
{
    _cellsOf.resize(_chunks.size());
    std::vector<LargeCellPart> parts;
    for (size_t i = 0; i < _chunks.size(); ++i) {
        const unsigned digits = _chunks[i].digits;
        size_t count = 0;
        for (const DividedNode& divided : _nodes[i])
            count += divided.cells.size();
        _cellsOf[i].reserve(count);
        for (const DividedNode& divided : std::exchange(_nodes[i], {}))
            for (const TreeCell& cell : divided.cells) {
                TreeCell& placed = _cellsOf[i].emplace_back(cell);
                if (cell.level >= digits)
                    _cells.push_back({cell.level, cell.code, 0, cell.pointCount, 0, false});
                else if (isLarge(cell))
                    parts.push_back({{cell.level, cell.code},
                                     divided.node.code << 3 * (kMortonLevels - digits),
                                     &placed});
            }
    }
    std::sort(parts.begin(), parts.end());
    for (size_t i = 1; i < parts.size(); ++i)
        if (parts[i].cell == parts[i - 1].cell)
            parts[i].points->first = parts[i - 1].points->first + parts[i - 1].points->pointCount;

    uint64_t gathered = 0;
    for (const auto& [key, pointCount] : std::exchange(_sharedCounts, {})) {
        const bool isGathered = pointCount <= _memory.chunkPoints;
        _cells.push_back({static_cast<uint8_t>(key.first), key.second, 0, pointCount, gathered, isGathered});
        if (isGathered) gathered += pointCount;
    }
    std::sort(_cells.begin(), _cells.end(), [](const Cell& a, const Cell& b) {
        return CellKey(a.level, a.code) < CellKey(b.level, b.code);
    });
    uint64_t first = 0;
    for (Cell& cell : _cells)
        cell.firstPoint = std::exchange(first, first + cell.pointCount);
}

const PointChunks::Cell& PointChunks::cell(unsigned level, uint64_t code) const
{
    return *std::lower_bound(
        _cells.begin(), _cells.end(), CellKey(level, code),
        [](const Cell& cell, const CellKey& key) { return CellKey(cell.level, cell.code) < key; });
}

} // namespace VelBrx
