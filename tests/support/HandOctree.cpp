#include "tests/support/HandOctree.h"

#include "loading/CellTree.h"

#include <cstdio>
#include <cstring>

namespace {

VelBrx::CellWithSegment makeRecord(unsigned level, uint64_t code, const osg::Vec3d& corner, double size,
                                   int64_t points)
{
    static int serial = 0; // identifiers are unique in the process, as those of stores are
    VelBrx::CellWithSegment record{};
    record.level = static_cast<uint8_t>(level);
    record.code = code;
    record.parentCode = level ? code >> 3 : VelBrx::kNoCell;
    const double edge = size / static_cast<double>(uint64_t{1} << level);
    double place[3] = {0.5, 0.5, 0.5}; // in edges
    for (unsigned bit = 0; bit < 3 * level; ++bit)
        place[bit % 3] += static_cast<double>(((code >> bit) & 1) << (bit / 3));
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
    for (size_t i = 0; i < records.size(); ++i) {
        if (records[i].level + 1u >= levels) break;
        for (uint64_t octant = 0; octant < branching; ++octant) {
            const uint64_t code = records[i].code << 3 | octant;
            records[i].childCodes[octant] = code;
            records.push_back(makeRecord(records[i].level + 1u, code, corner, size, points));
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
    buildCellTree(records, *octree);
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
