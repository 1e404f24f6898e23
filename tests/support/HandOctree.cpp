#include "tests/support/HandOctree.h"

#include "loading/OctreeCells.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

/// The key code of a cell whose place in its level has the given Morton code. No code follows from another,
/// so that whoever computes parents and children in place of reading them is found out.
uint64_t keyCode(unsigned level, uint64_t morton)
{
    return (morton + 1) * 0x9E3779B97F4A7C15u ^ level;
}

VelBrx::CellWithSegment makeRecord(unsigned level, uint64_t morton, const osg::Vec3d& corner, double size,
                                   int64_t points)
{
    static int serial = 0; // identifiers are unique in the process, as those of stores are
    VelBrx::CellWithSegment record{};
    record.level = static_cast<uint8_t>(level);
    record.code = keyCode(level, morton);
    record.parentCode = level ? keyCode(level - 1, morton >> 3) : VelBrx::kNoCell;
    const double edge = std::ldexp(size, -static_cast<int>(level));
    double place[3] = {0.5, 0.5, 0.5}; // in edges
    for (unsigned bit = 0; bit < std::min(3 * level, 64u); ++bit)
        place[bit % 3] += static_cast<double>(((morton >> bit) & 1) << (bit / 3));
    for (size_t axis = 0; axis < 3; ++axis) {
        record.size[axis] = static_cast<float>(edge);
        record.center[axis] = corner[static_cast<int>(axis)] + place[axis] * edge;
    }
    record.resolutionLength = edge / 100;
    std::memset(record.childCodes, 0xff, sizeof record.childCodes);
    std::snprintf(record.identifier, sizeof record.identifier, "hand-%d", serial++);
    record.segments = {{0, points}};
    record.pointCount = static_cast<uint32_t>(points);
    return record;
}

} // namespace

std::vector<VelBrx::CellWithSegment> fullTree(unsigned levels, const osg::Vec3d& center, double size,
                                              unsigned branching, int64_t points)
{
    const osg::Vec3d corner = center - osg::Vec3d(size, size, size) / 2;
    std::vector<VelBrx::CellWithSegment> records{makeRecord(0, 0, corner, size, points)};
    std::vector<uint64_t> places{0}; // Morton codes of the records
    for (size_t i = 0; i < records.size(); ++i) {
        const unsigned level = records[i].level + 1u;
        if (level >= levels) break;
        for (uint64_t octant = 0; octant < branching; ++octant) {
            places.push_back(places[i] << 3 | octant);
            records.push_back(makeRecord(level, places.back(), corner, size, points));
            records[i].childCodes[octant] = records.back().code;
        }
    }
    return records;
}

osg::ref_ptr<OctreeInfo> handOctree(const std::vector<VelBrx::CellWithSegment>& records,
                                    const osg::Vec3d& offset)
{
    osg::ref_ptr<OctreeInfo> octree = new OctreeInfo;
    octree->offset = offset;
    octree->scale.set(1, 1, 1);
    octree->pointFile = std::make_unique<VelBrx::File>("/dev/null");
    linkOctreeCells(records, *octree);
    return octree;
}

void visitCells(CellData& cell, const std::function<void(CellData&)>& visit)
{
    visit(cell);
    for (const auto& child : cell.children)
        visitCells(*child, visit);
}

size_t countLoaded(const OctreeInfo& octree)
{
    size_t count = 0;
    visitCells(*octree.root, [&](CellData& cell) { count += cell.node.valid(); });
    return count;
}

size_t countLoaded(const OctreeInfo& octree, int level)
{
    size_t count = 0;
    visitCells(*octree.root,
               [&](CellData& cell) { count += cell.node.valid() && cell.record.level == level; });
    return count;
}
