#include "store/StoreIndex.h"

#include "store/CellIdentifiers.h"
#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "store/las/VlrHeader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <utility>

namespace VelBrx {

namespace {

constexpr char kMagic[] = "VELBRXIX";
constexpr size_t kMagicSize = 8;

/// \name Byte positions in the index record
/// @{
constexpr size_t kMagicAt = 0;
constexpr size_t kVersionAt = 8;
constexpr size_t kHeaderChecksumAt = 12;
constexpr size_t kStoreIdAt = 16;
constexpr size_t kCubeMinAt = 24;
constexpr size_t kCubeSizeAt = 48;
constexpr size_t kGridSizeAt = 56;
constexpr size_t kSourceCountAt = 60;
constexpr size_t kCellCountAt = 64;
constexpr size_t kSegmentCountAt = 72;
constexpr size_t kRangesAt = 80; ///< elevation, intensity, GPS time; 4 float64 each
constexpr size_t kMaxColorAt = 176;
constexpr size_t kByClassAt = 184;
constexpr size_t kByReturnAt = 2232;
constexpr size_t kByNumberOfReturnsAt = 2360;
constexpr size_t kFixedSize = 2488; ///< where the point source ids start
/// @}

constexpr size_t kCellSize = 16;
constexpr size_t kSegmentSize = 16;
constexpr size_t kMaxSources = 65536;
constexpr uint32_t kMaxGridSize = 65536;

/// Bytes of the list of point source ids, filled up with zeros to a multiple of 8.
size_t sourcesSize(size_t count)
{
    return (2 * count + 7) / 8 * 8;
}

template <size_t N>
void storeCounts(uint8_t* bytes, const std::array<uint64_t, N>& counts)
{
    for (size_t i = 0; i < N; ++i)
        storeLe(bytes + 8 * i, counts[i]);
}

template <size_t N>
void loadCounts(const uint8_t* bytes, std::array<uint64_t, N>& counts)
{
    for (size_t i = 0; i < N; ++i)
        counts[i] = loadLe<uint64_t>(bytes + 8 * i);
}

void storeRange(uint8_t* bytes, const AttributeRange& range)
{
    storeLe(bytes, range.min);
    storeLe(bytes + 8, range.max);
    storeLe(bytes + 16, range.low);
    storeLe(bytes + 24, range.high);
}

AttributeRange loadRange(const uint8_t* bytes)
{
    return {loadLe<double>(bytes), loadLe<double>(bytes + 8), loadLe<double>(bytes + 16),
            loadLe<double>(bytes + 24)};
}

void storeStatistics(uint8_t* data, const StoreStatistics& statistics)
{
    storeRange(data + kRangesAt, statistics.elevation);
    storeRange(data + kRangesAt + 32, statistics.intensity);
    storeRange(data + kRangesAt + 64, statistics.gpsTime);
    storeLe(data + kMaxColorAt, statistics.maxColor);
    storeCounts(data + kByClassAt, statistics.pointsByClass);
    storeCounts(data + kByReturnAt, statistics.pointsByReturn);
    storeCounts(data + kByNumberOfReturnsAt, statistics.pointsByNumberOfReturns);
    storeLe(data + kSourceCountAt, static_cast<uint32_t>(statistics.pointSources.size()));
    for (size_t i = 0; i < statistics.pointSources.size(); ++i)
        storeLe(data + kFixedSize + 2 * i, statistics.pointSources[i]);
}

void loadStatistics(const uint8_t* data, StoreStatistics& statistics)
{
    statistics.elevation = loadRange(data + kRangesAt);
    statistics.intensity = loadRange(data + kRangesAt + 32);
    statistics.gpsTime = loadRange(data + kRangesAt + 64);
    statistics.maxColor = loadLe<uint16_t>(data + kMaxColorAt);
    loadCounts(data + kByClassAt, statistics.pointsByClass);
    loadCounts(data + kByReturnAt, statistics.pointsByReturn);
    loadCounts(data + kByNumberOfReturnsAt, statistics.pointsByNumberOfReturns);
    statistics.pointSources.resize(loadLe<uint32_t>(data + kSourceCountAt));
    for (size_t i = 0; i < statistics.pointSources.size(); ++i)
        statistics.pointSources[i] = loadLe<uint16_t>(data + kFixedSize + 2 * i);
}

Status damaged(const std::string& what)
{
    return Status::failure("the octree index " + what + "; restore the store from a copy or build it anew",
                           Status::Kind::DAMAGED);
}

/// Whether `size` is the size of a record with the counts that it states.
bool sizesAgree(const uint8_t* data, size_t size)
{
    const uint64_t sources = loadLe<uint32_t>(data + kSourceCountAt);
    const uint64_t cells = loadLe<uint64_t>(data + kCellCountAt);
    const uint64_t segments = loadLe<uint64_t>(data + kSegmentCountAt);
    if (sources > kMaxSources || cells > size / kCellSize || segments > size / kSegmentSize) return false;
    return size == kFixedSize + sourcesSize(sources) + kCellSize * cells + kSegmentSize * segments +
                       kRecordChecksumSize;
}

/// Reads the cells from `data`, where they start, and their segments, which follow them.
Status loadCells(const uint8_t* data, uint64_t cellCount, uint64_t segmentCount,
                 std::vector<IndexCell>& cells)
{
    const uint8_t* segment = data + kCellSize * cellCount;
    uint64_t segmentsLeft = segmentCount;
    cells.resize(cellCount);
    for (uint64_t i = 0; i < cellCount; ++i) {
        const uint8_t* const bytes = data + kCellSize * i;
        IndexCell& cell = cells[i];
        cell.code = loadLe<uint64_t>(bytes);
        cell.level = bytes[12];
        const uint32_t count = loadLe<uint32_t>(bytes + 8);
        if (count > segmentsLeft || loadLe<uint32_t>(bytes + 12) >> 8 != 0)
            return damaged("has a malformed entry for cell " + cellName(cell.level, cell.code) +
                           " (entry number " + std::to_string(i) + ")");
        segmentsLeft -= count;
        cell.segments.resize(count);
        for (Segment& run : cell.segments) {
            run = {loadLe<int64_t>(segment), loadLe<int64_t>(segment + 8)};
            segment += kSegmentSize;
        }
    }
    return segmentsLeft == 0 ? Status() : damaged("has segments that belong to no cell");
}

/// Writes the cells to `data` and their segments behind them.
void storeCells(uint8_t* data, const std::vector<IndexCell>& cells)
{
    uint8_t* segment = data + kCellSize * cells.size();
    for (const IndexCell& cell : cells) {
        storeLe(data, cell.code);
        storeLe(data + 8, static_cast<uint32_t>(cell.segments.size()));
        data[12] = cell.level;
        data += kCellSize;
        for (const Segment& run : cell.segments) {
            storeLe(segment, run.first);
            storeLe(segment + 8, run.count);
            segment += kSegmentSize;
        }
    }
}

CellKey keyOf(const IndexCell& cell)
{
    return {cell.level, cell.code};
}

/// Calls `visit(cell, parent)` with the positions of every cell below the root and its parent, or the number
/// of cells where it has none. The cells must be in order.
template <typename Visit>
void visitParents(const std::vector<IndexCell>& cells, Visit visit)
{
    size_t parent = 0;
    for (size_t i = 0; i < cells.size(); ++i) {
        if (cells[i].level == 0) continue;
        const CellKey wanted(cells[i].level - 1u, cells[i].code >> 3);
        while (parent < i && keyOf(cells[parent]) < wanted)
            ++parent;
        visit(i, keyOf(cells[parent]) == wanted ? parent : cells.size());
    }
}

std::string nameOf(const IndexCell& cell)
{
    return "cell " + cellName(cell.level, cell.code);
}

/// Root first, every cell once, by level and code, with codes that its level has. Whether that is so.
bool checkCellOrder(const std::vector<IndexCell>& cells, ProblemList& problems)
{
    const char* const kind = "cell out of order";
    bool good = true;
    const auto report = [&](const IndexCell& cell, const char* what) {
        problems.add(kind, nameOf(cell) + " " + what);
        good = false;
    };
    if (cells.empty()) {
        problems.add(kind, "the octree index has no cells");
        return false;
    }
    if (cells[0].level != 0) report(cells[0], "comes first, where the root must be");
    for (size_t i = 0; i < cells.size(); ++i) {
        const IndexCell& cell = cells[i];
        if (cell.level > kMaxLevel)
            report(cell, "lies deeper than the deepest level");
        else if (cell.code >> (3 * cell.level) != 0)
            report(cell, "has a key code that its level does not have");
        if (i == 0) continue;
        const CellKey before = keyOf(cells[i - 1]);
        if (before == keyOf(cell))
            report(cell, "is listed twice");
        else if (keyOf(cell) < before)
            report(cell, "is not in order of level and key code");
    }
    return good;
}

/// Every segment inside the points, no cell empty or too large to draw.
bool checkSegmentsInside(const std::vector<IndexCell>& cells, uint64_t pointCount, ProblemList& problems)
{
    const char* const kind = "segment outside the points";
    bool good = true;
    const auto report = [&](const IndexCell& cell, const std::string& what) {
        problems.add(kind, nameOf(cell) + " " + what);
        good = false;
    };
    for (const IndexCell& cell : cells) {
        int64_t cellPoints = 0;
        if (cell.segments.empty()) report(cell, "has no segments");
        for (const Segment& run : cell.segments) {
            if (run.first < 0 || run.count <= 0 || static_cast<uint64_t>(run.count) > pointCount ||
                static_cast<uint64_t>(run.first) > pointCount - static_cast<uint64_t>(run.count)) {
                report(cell, "has a segment of " + std::to_string(run.count) + " points from point " +
                                 std::to_string(run.first) + " on, outside the " +
                                 std::to_string(pointCount) + " points of the store");
                continue;
            }
            if (run.count > kMaxCellPoints - cellPoints) {
                report(cell, "has more points than can be drawn at once");
                break;
            }
            cellPoints += run.count;
        }
    }
    return good;
}

/// Every point in exactly one segment. All segments must lie inside the points.
void checkSegmentsCover(const std::vector<IndexCell>& cells, uint64_t pointCount, ProblemList& problems)
{
    struct Run
    {
        Segment segment;
        const IndexCell* cell;
    };
    std::vector<Run> runs;
    for (const IndexCell& cell : cells)
        for (const Segment& segment : cell.segments)
            runs.push_back({segment, &cell});
    const auto startsEarlier = [](const Run& a, const Run& b) { return a.segment.first < b.segment.first; };
    if (!std::is_sorted(runs.begin(), runs.end(), startsEarlier))
        std::sort(runs.begin(), runs.end(), startsEarlier);

    int64_t end = 0;
    const IndexCell* last = nullptr;
    const auto reportGap = [&](int64_t next) {
        problems.add("points in no cell", "points " + std::to_string(end) + " to " +
                                              std::to_string(next - 1) + " belong to no cell");
    };
    for (const Run& run : runs) {
        const int64_t first = run.segment.first;
        if (first < end)
            problems.add("overlapping segments", nameOf(*run.cell) + " and " + nameOf(*last) +
                                                     " both have point " + std::to_string(first));
        else if (first > end)
            reportGap(first);
        if (first + run.segment.count > end) {
            end = first + run.segment.count;
            last = run.cell;
        }
    }
    if (end < static_cast<int64_t>(pointCount)) reportGap(static_cast<int64_t>(pointCount));
}

template <size_t N>
void checkCounts(const char* name, const std::array<uint64_t, N>& counts, uint64_t pointCount,
                 ProblemList& problems)
{
    uint64_t left = pointCount;
    bool tooMany = false;
    for (const uint64_t count : counts) {
        tooMany = tooMany || count > left;
        left -= std::min(count, left);
    }
    if (tooMany || left > 0)
        problems.add("statistics", std::string("the index's counts by ") + name + " do not add up to " +
                                       std::to_string(pointCount) + " points");
}

void checkStatistics(const StoreStatistics& statistics, uint64_t pointCount, ProblemList& problems)
{
    const auto checkRange = [&](const char* name, const AttributeRange& range) {
        const bool ordered = range.min <= range.low && range.low <= range.high && range.high <= range.max;
        if (!ordered)
            problems.add("statistics", std::string("the index's range of ") + name + " is not in order");
    };
    checkRange("elevation", statistics.elevation);
    checkRange("intensity", statistics.intensity);
    checkRange("GPS time", statistics.gpsTime);
    checkCounts("class", statistics.pointsByClass, pointCount, problems);
    checkCounts("return", statistics.pointsByReturn, pointCount, problems);
    checkCounts("number of returns", statistics.pointsByNumberOfReturns, pointCount, problems);
    const auto& sources = statistics.pointSources;
    if (std::adjacent_find(sources.begin(), sources.end(), std::greater_equal<>()) != sources.end())
        problems.add("statistics", "the index's point source ids are not in ascending order");
}

CellWithSegment deriveCell(const StoreIndex& index, const IndexCell& source,
                           const CellIdentifiers& identifiers)
{
    CellWithSegment cell{};
    const double edge = std::ldexp(index.cubeSize, -static_cast<int>(source.level));
    const std::array<uint32_t, 3> grid = mortonDecode(source.code);
    cell.level = source.level;
    cell.code = source.code;
    cell.parentCode = source.level == 0 ? kNoCell : source.code >> 3;
    for (size_t axis = 0; axis < 3; ++axis) {
        cell.size[axis] = static_cast<float>(edge);
        cell.center[axis] = index.cubeMin[axis] + (grid[axis] + 0.5) * edge;
    }
    // The root stays wanted while it is a pixel wide: a store seen from afar must not vanish.
    cell.resolutionLength = resolutionLength(source.level == 0 ? edge : edge / index.gridSize);
    for (size_t octant = 0; octant < 8; ++octant) // packed: no reference may be bound to an element
        cell.childCodes[octant] = kNoCell;
    identifiers.identify(cell);
    cell.segments = source.segments;
    for (const Segment& run : source.segments)
        cell.pointCount += static_cast<uint32_t>(run.count);
    return cell;
}

} // namespace

std::vector<uint8_t> storeRecordHeader(uint16_t recordId, uint64_t length, const char* description)
{
    return makeEvlrHeader(kStoreUserId, recordId, description, length);
}

std::vector<uint8_t> encodeIndex(const StoreIndex& index)
{
    uint64_t segmentCount = 0;
    for (const IndexCell& cell : index.cells)
        segmentCount += cell.segments.size();
    const size_t cellsAt = kFixedSize + sourcesSize(index.statistics.pointSources.size());
    const size_t checksumAt = cellsAt + kCellSize * index.cells.size() + kSegmentSize * segmentCount;

    std::vector<uint8_t> bytes(checksumAt + kRecordChecksumSize);
    uint8_t* const data = bytes.data();
    std::memcpy(data + kMagicAt, kMagic, kMagicSize);
    storeLe(data + kVersionAt, kIndexVersion);
    storeLe(data + kHeaderChecksumAt, index.headerChecksum);
    storeLe(data + kStoreIdAt, index.storeId);
    for (size_t axis = 0; axis < 3; ++axis)
        storeLe(data + kCubeMinAt + 8 * axis, index.cubeMin[axis]);
    storeLe(data + kCubeSizeAt, index.cubeSize);
    storeLe(data + kGridSizeAt, index.gridSize);
    storeLe(data + kCellCountAt, static_cast<uint64_t>(index.cells.size()));
    storeLe(data + kSegmentCountAt, segmentCount);
    storeStatistics(data, index.statistics);
    storeCells(data + cellsAt, index.cells);
    storeLe(data + checksumAt, crc32c(data, checksumAt));
    return bytes;
}

Status parseIndex(const uint8_t* data, size_t size, StoreIndex& index)
{
    if (size < kFixedSize + kRecordChecksumSize || std::memcmp(data + kMagicAt, kMagic, kMagicSize) != 0)
        return damaged("does not start as one");
    const uint32_t version = loadLe<uint32_t>(data + kVersionAt);
    if (version != kIndexVersion)
        return Status::failure("the octree index has format version " + std::to_string(version) +
                               ", this program reads version " + std::to_string(kIndexVersion) +
                               "; use the program that wrote it, or a newer one");
    if (crc32c(data, size - kRecordChecksumSize) != loadLe<uint32_t>(data + size - kRecordChecksumSize))
        return damaged("does not match its checksum");
    if (!sizesAgree(data, size)) return damaged("has another length than its counts call for");

    index.headerChecksum = loadLe<uint32_t>(data + kHeaderChecksumAt);
    index.storeId = loadLe<uint64_t>(data + kStoreIdAt);
    for (size_t axis = 0; axis < 3; ++axis)
        index.cubeMin[axis] = loadLe<double>(data + kCubeMinAt + 8 * axis);
    index.cubeSize = loadLe<double>(data + kCubeSizeAt);
    index.gridSize = loadLe<uint32_t>(data + kGridSizeAt);
    loadStatistics(data, index.statistics);
    return loadCells(data + kFixedSize + sourcesSize(index.statistics.pointSources.size()),
                     loadLe<uint64_t>(data + kCellCountAt), loadLe<uint64_t>(data + kSegmentCountAt),
                     index.cells);
}

void checkIndex(const StoreIndex& index, uint64_t pointCount, ProblemList& problems)
{
    bool cubeGood = index.cubeSize > 0;
    for (const double coordinate : index.cubeMin)
        cubeGood = cubeGood && std::isfinite(coordinate) && std::isfinite(coordinate + index.cubeSize);
    if (!cubeGood) problems.add("cube", "the octree's cube is not a finite box");
    if (index.gridSize == 0 || index.gridSize > kMaxGridSize)
        problems.add("cube", "the sampling grid size " + std::to_string(index.gridSize) + " is not 1 to " +
                                 std::to_string(kMaxGridSize));

    if (checkCellOrder(index.cells, problems))
        visitParents(index.cells, [&](size_t cell, size_t parent) {
            if (parent == index.cells.size())
                problems.add("cell without parent",
                             nameOf(index.cells[cell]) + " has no parent in the octree index");
        });
    if (checkSegmentsInside(index.cells, pointCount, problems))
        checkSegmentsCover(index.cells, pointCount, problems);
    checkStatistics(index.statistics, pointCount, problems);
}

Status decodeIndex(const uint8_t* data, size_t size, uint64_t pointCount, StoreIndex& index)
{
    Status parsed = parseIndex(data, size, index);
    if (!parsed) return parsed;
    ProblemList problems;
    checkIndex(index, pointCount, problems);
    if (problems.empty()) return {};
    return Status::failure(problems.lines().front() + "; restore the store from a copy or build it anew",
                           Status::Kind::DAMAGED);
}

std::string cellName(unsigned level, uint64_t code)
{
    char name[32];
    std::snprintf(name, sizeof name, "%02x-%016llx", level, static_cast<unsigned long long>(code));
    return name;
}

std::array<uint32_t, 3> mortonDecode(uint64_t code)
{
    std::array<uint32_t, 3> grid{};
    for (unsigned bit = 0; bit < 21; ++bit)
        for (unsigned axis = 0; axis < 3; ++axis)
            grid[axis] |= static_cast<uint32_t>((code >> (3 * bit + axis)) & 1) << bit;
    return grid;
}

double resolutionLength(double spacing)
{
    constexpr double kFieldOfView = 30;                  // degrees
    constexpr double kHalfAngle = 3.14159265358979 / 12; // 15 degrees
    return 0.5 * std::abs(std::tan(kFieldOfView / kFieldOfViewDivisor)) / (2 * std::tan(kHalfAngle)) *
           spacing;
}

double pointSpacing(double resolutionLength)
{
    return resolutionLength / VelBrx::resolutionLength(1.0);
}

std::vector<CellWithSegment> deriveCells(const StoreIndex& index, const FileIdentity& file)
{
    const CellIdentifiers identifiers(file, index.storeId);
    std::vector<CellWithSegment> cells;
    cells.reserve(index.cells.size());
    for (const IndexCell& cell : index.cells)
        cells.push_back(deriveCell(index, cell, identifiers));
    visitParents(index.cells, [&](size_t cell, size_t parent) {
        if (parent < cells.size()) cells[parent].childCodes[cells[cell].code & 7] = cells[cell].code;
    });
    return cells;
}

} // namespace VelBrx
