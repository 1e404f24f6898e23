#include "store/builder/ChunkDivision.h"

#include <algorithm>
#include <utility>

namespace VelBrx {

ChunkDivision::ChunkDivision(const ChunkPlan& plan, const BuildMemory& memory, const ChunkLevels& levels,
                             PointSpool& spool, PointGate& gate)
    : _chunks(plan.chunks()), _memory(memory), _levels(levels), _spool(spool), _gate(gate),
      _nodes(plan.chunks().size())
{
}

Status ChunkDivision::run(ParallelRun& run, StoreCells& cells)
{
    Status status = run.forEach(_chunks.size(), [&](size_t i) {
        const Status divided = divideAsUsual(i);
        if (divided) run.done(_chunks[i].pointCount);
        return divided;
    });
    if (status) status = run.forEach(_chunks.size(), [&](size_t i) { return correct(i); });
    if (!status) return status;
    countShared();
    status = run.forEach(_chunks.size(), [&](size_t i) { return joinLarge(i); });
    _shared = {};
    if (status) cells = placeCells();
    return status;
}

/// Divides a chunk before the counts of other chunks are known, and adds its own.
Status ChunkDivision::divideAsUsual(size_t chunk)
{
    const unsigned digits = _chunks[chunk].digits;
    const AncestorTake usual = AncestorTake::ofOwnLevels(digits);
    if (Status status = divide(chunk, [&](const TreeNode&) { return usual; }); !status) return status;
    const VelThreads::Lock lock(_mutex);
    for (const DividedNode& divided : _nodes[chunk])
        _shared.add(digits, divided.node.code, divided.node.counts);
    return {};
}

/// Divides the nodes of a chunk, of which the cells above take what `takeOf` returns.
template <typename TakeOf>
Status ChunkDivision::divide(size_t chunk, const TakeOf& takeOf)
{
    const Chunk& divided = _chunks[chunk];
    const PointGate::Room room(_gate, divided.pointCount);
    SortedPoints sorted(divided.pointCount);
    if (Status status = _levels.sort(divided, sorted); !status) return status;
    TreePoint* const points = sorted.points.get();
    const auto order = uninitialised<uint32_t>(divided.pointCount);
    _nodes[chunk].clear();
    for (const TreeNode& node : nodesOf(points, divided.pointCount, divided.digits))
        _nodes[chunk].push_back(
            {node, divideIntoCells(points, node, divided.digits, takeOf(node), order.get() + node.begin)});
    return _spool.writeOrder(divided, order.get());
}

/// Gives the points of a chunk to the cells above that take them, now that all counts are known.
Status ChunkDivision::correct(size_t chunk)
{
    const unsigned digits = _chunks[chunk].digits;
    const auto takeOf = [&](const TreeNode& node) { return _shared.takeOf(digits, node.code, node.counts); };
    for (auto& [node, cells] : _nodes[chunk]) {
        const AncestorTake take = takeOf(node);
        if (take.firstLeft == digits) continue;
        if (take.firstLeft <= kMaxLevel || take.takenBy[digits] != take.takenBy[kMaxLevel])
            return divide(chunk, takeOf);
        for (TreeCell& cell : cells) {
            const uint8_t level = take.takenBy[std::min<unsigned>(cell.level, digits)];
            cell = {level, node.code >> 3 * (digits - level), cell.pointCount};
        }
    }
    return {};
}

/// Adds up the points that cells get of several chunks.
void ChunkDivision::countShared()
{
    for (size_t i = 0; i < _chunks.size(); ++i)
        for (const DividedNode& divided : _nodes[i])
            for (const TreeCell& cell : divided.cells)
                if (cell.level < _chunks[i].digits) _sharedCounts[{cell.level, cell.code}] += cell.pointCount;
}

/// Whether a cell is shared by chunks and may not fit into memory.
bool ChunkDivision::isLarge(const TreeCell& cell) const
{
    const auto entry = _sharedCounts.find({cell.level, cell.code});
    return entry != _sharedCounts.end() && entry->second > _memory.chunkPoints;
}

/// Divides a chunk again where `correct` left several runs of points of a large cell: they must be one.
Status ChunkDivision::joinLarge(size_t chunk)
{
    const unsigned digits = _chunks[chunk].digits;
    const auto isSplit = [this](const TreeCell& a, const TreeCell& b) {
        return a.level == b.level && a.code == b.code && isLarge(a);
    };
    for (const DividedNode& divided : _nodes[chunk])
        if (std::adjacent_find(divided.cells.begin(), divided.cells.end(), isSplit) != divided.cells.end())
            return divide(
                chunk, [&](const TreeNode& node) { return _shared.takeOf(digits, node.code, node.counts); });
    return {};
}

/// Points that a node gives to a large cell. They are neighbours in the cell's order, as no other chunk has
/// points of the node.
struct ChunkDivision::LargeCellPart
{
    CellKey cell;
    uint64_t start; ///< the node's first Morton code
    TreeCell* points;

    bool operator<(const LargeCellPart& other) const
    {
        return cell != other.cell ? cell < other.cell : start < other.start;
    }
};

StoreCells ChunkDivision::placeCells()
{
    std::vector<StoreCell> cells;
    std::vector<std::vector<TreeCell>> ofChunks(_chunks.size());
    std::vector<LargeCellPart> parts;
    for (size_t i = 0; i < _chunks.size(); ++i) {
        const unsigned digits = _chunks[i].digits;
        size_t count = 0;
        for (const DividedNode& divided : _nodes[i])
            count += divided.cells.size();
        ofChunks[i].reserve(count); // parts point into it
        for (const DividedNode& divided : std::exchange(_nodes[i], {}))
            for (const TreeCell& cell : divided.cells) {
                TreeCell& placed = ofChunks[i].emplace_back(cell);
                if (cell.level >= digits)
                    cells.push_back({cell.level, cell.code, 0, cell.pointCount, 0, false});
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

    uint64_t firstShared = 0;
    for (const auto& [key, pointCount] : _sharedCounts) {
        const bool isMerged = pointCount <= _memory.chunkPoints;
        cells.push_back({static_cast<uint8_t>(key.first), key.second, 0, pointCount, firstShared, isMerged});
        if (isMerged) firstShared += pointCount;
    }
    return {std::move(cells), std::move(ofChunks)};
}

} // namespace VelBrx
