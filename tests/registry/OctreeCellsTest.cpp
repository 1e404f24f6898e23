#include "loading/OctreeCells.h"

#include "tests/support/HandOctree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace {

using Records = std::vector<VelBrx::CellWithSegment>;

Records smallTree()
{
    return fullTree(3, osg::Vec3d(), 8);
}

size_t countCells(const OctreeInfo& octree)
{
    size_t count = 0;
    visitCells(*octree.root, [&](CellData&) { ++count; });
    return count;
}

TEST(OctreeCells, ChildrenStandInOctantOrderUnderTheirParents)
{
    Records records = smallTree();
    std::reverse(records.begin(), records.end()); // the order of the records does not matter
    const osg::ref_ptr<OctreeInfo> octree = handOctree(records);
    EXPECT_EQ(countCells(*octree), 73u);
    EXPECT_FALSE(octree->root->parent.valid());
    visitCells(*octree->root, [&](CellData& cell) {
        EXPECT_EQ(cell.octree, octree.get());
        for (size_t octant = 0; octant < cell.children.size(); ++octant) {
            const CellData& child = *cell.children[octant];
            EXPECT_EQ(child.parent, &cell);
            EXPECT_EQ(child.record.level, cell.record.level + 1);
            for (size_t axis = 0; axis < 3; ++axis)
                EXPECT_EQ(child.record.center[axis] > cell.record.center[axis], (octant >> axis & 1) == 1);
        }
    });
}

TEST(OctreeCells, TheFirstRecordOfALevelAndCodeCounts)
{
    for (const size_t doubled : {0, 5, 40}) { // one of each level
        Records records = smallTree();
        records.push_back(records[doubled]);
        std::snprintf(records.back().identifier, sizeof records.back().identifier, "copy");
        const osg::ref_ptr<OctreeInfo> octree = handOctree(records);
        EXPECT_EQ(countCells(*octree), 73u);
        visitCells(*octree->root, [](CellData& cell) { EXPECT_NE(cell.identifier, "copy"); });
    }
}

TEST(OctreeCells, MissingParentsAndChildrenLeaveNoLinks)
{
    Records records = smallTree();
    records.erase(records.begin() + 1); // the first cell of level 1
    const osg::ref_ptr<OctreeInfo> octree = handOctree(records);
    EXPECT_EQ(octree->root->children.size(), 7u);
    EXPECT_EQ(countCells(*octree), 73u - 9) << "what hangs under a missing cell is not reached";
}

TEST(OctreeCells, TheLastOfSeveralRootsStaysAndWithoutOneTheRootIsEmpty)
{
    Records records = smallTree();
    VelBrx::CellWithSegment second = records[0];
    second.code = 1;
    records.push_back(second);
    EXPECT_EQ(uint64_t{handOctree(records)->root->record.code}, 1u);
    records = Records(records.begin() + 1, records.end() - 1);
    EXPECT_FALSE(handOctree(records)->root);
}

TEST(OctreeCells, TheDeepestLevelThatARecordCanStateHasNoChildren)
{
    constexpr unsigned kLevels = std::numeric_limits<uint8_t>::max() + 1;
    Records records = fullTree(kLevels, osg::Vec3d(), 8, 1);
    records.back().childCodes[0] = records[0].code; // counted on beyond 255, the root would be its own child
    const osg::ref_ptr<OctreeInfo> octree = handOctree(records);
    const CellData* cell = octree->root;
    for (unsigned level = 1; level < kLevels; ++level) {
        ASSERT_EQ(cell->children.size(), 1u) << level;
        cell = cell->children[0];
        ASSERT_EQ(cell->record.level, level);
    }
    EXPECT_TRUE(cell->children.empty());
    octree->root->children.clear(); // a ring would never be freed
}

TEST(OctreeCells, ItDiesWithTheOctree)
{
    osg::ref_ptr<OctreeInfo> octree = handOctree(smallTree());
    const osg::ref_ptr<CellData> kept = octree->root->children[2];
    const osg::observer_ptr<CellData> gone(octree->root->children[3].get());
    octree = nullptr;
    EXPECT_FALSE(gone.valid());
    EXPECT_FALSE(kept->octree.valid());
    EXPECT_FALSE(kept->parent.valid());
}

} // namespace
