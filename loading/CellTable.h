#pragma once

#include <osg/Referenced>
#include <osg/Vec3f>

#include <cstdint>
#include <vector>

class CellData;
class OctreeInfo;

/// The cells of one octree in depth-first order, each before its children: what a level-of-detail pass reads
/// of every cell, side by side in memory. A million cells scattered over the heap cost a pass several times
/// what it has.
///
/// It is made once an octree, by its first pass, and belongs to the passes of the context that the octree is
/// registered with.
class CellTable : public osg::Referenced
{
public:
    struct Cell
    {
        CellData* data; ///< lives as long as the octree
        double resolutionLength;
        int64_t points;    ///< sum over the segments
        osg::Vec3f center; ///< local coordinates
        osg::Vec3f halfSize;
        uint32_t subtreeSize; ///< cells from here to the end of the subtree, this one included
        uint8_t level;
        bool loaded; ///< `data->node` is set
        /// \name Of a pass with several views, zero outside it
        /// @{
        uint8_t views; ///< that want the cell
        bool admitted;
        /// @}
    };

    explicit CellTable(const OctreeInfo& octree);

    std::vector<Cell> cells;

protected:
    ~CellTable() override = default;

private:
    void append(CellData& cell, const OctreeInfo& octree);
};
