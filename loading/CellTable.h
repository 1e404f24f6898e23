#pragma once

#include <osg/Referenced>
#include <osg/Vec3f>

#include <cstddef>
#include <cstdint>
#include <vector>

class CellData;
class OctreeInfo;

/// The cells of one octree by level, those of a level in depth-first order: what a level-of-detail pass reads
/// of them, side by side in memory. The children of neighbours are neighbours, so that all descendants of a
/// cell are one range on each level, and what holds for a subtree is a matter of one range a level.
///
/// It is made once an octree, by its first pass, and belongs to the passes of the context that the octree is
/// registered with.
class CellTable : public osg::Referenced
{
public:
    /// What decides whether a cell is wanted.
    struct Cell
    {
        osg::Vec3f center; ///< local coordinates
        osg::Vec3f halfSize;
        double resolutionLength;
    };

    /// What holds for every cell of a subtree, its root included.
    struct Subtree
    {
        osg::Vec3f min; ///< of their boxes; local coordinates
        osg::Vec3f max;
        double shortest; ///< resolution length
    };

    /// Cells of one level, by their numbers.
    struct Range
    {
        size_t first, end;

        bool isEmpty() const { return first == end; }
    };

    explicit CellTable(const OctreeInfo& octree);

    static Cell cellOf(const CellData& data, const OctreeInfo& octree);

    size_t levels() const { return _levelStart.size() - 1; }
    Range level(size_t number) const { return {_levelStart[number], _levelStart[number + 1]}; }
    Range all() const { return {0, cells.size()}; }

    /// The children of all cells in a range that has any.
    Range children(const Range& range) const { return {_firstChild[range.first], _firstChild[range.end]}; }

    /// Sum over the segments of the cells.
    int64_t points(const Range& range) const { return _pointsBefore[range.end] - _pointsBefore[range.first]; }
    int64_t points(size_t cell) const { return points({cell, cell + 1}); }

    CellData& data(size_t cell) const { return *_data[cell]; }

    /// Where the cell stands among all in depth-first order.
    uint32_t place(size_t cell) const { return _place[cell]; }

    /// Whether `data(cell).node` is set.
    bool isLoaded(size_t cell) const { return _loaded[cell / 64] >> cell % 64 & 1; }
    void setLoaded(size_t cell, bool loaded);

    /// Calls `visit(cell)` for the cells of a range that are loaded, or for those that are not, in their
    /// order.
    template <class Visit>
    void forEach(const Range& range, bool loaded, const Visit& visit) const;

    std::vector<Cell> cells;
    std::vector<Subtree> subtrees; ///< of each cell

    /// \name Of a pass with several views, of each cell; zero outside it
    /// @{
    std::vector<uint8_t> views; ///< that want the cell
    std::vector<uint8_t> admitted;
    /// @}

protected:
    ~CellTable() override = default;

private:
    /// Of each level the cells with their places, in depth-first order.
    using Levels = std::vector<std::vector<std::pair<CellData*, uint32_t>>>;

    static void collect(CellData& cell, size_t level, uint32_t& place, Levels& levels);
    void append(CellData& data, const OctreeInfo& octree);
    void boundSubtrees();

    std::vector<size_t> _levelStart;
    std::vector<uint32_t> _firstChild;  ///< where a cell's children start, or would; one more than cells
    std::vector<int64_t> _pointsBefore; ///< of the cells before; one more than cells
    std::vector<CellData*> _data;       ///< live as long as the octree
    std::vector<uint32_t> _place;
    std::vector<uint64_t> _loaded; ///< bits
};

template <class Visit>
void CellTable::forEach(const Range& range, bool loaded, const Visit& visit) const
{
    for (size_t start = range.first; start < range.end; start = (start / 64 + 1) * 64) {
        const uint64_t word = loaded ? _loaded[start / 64] : ~_loaded[start / 64];
        uint64_t bits = word >> start % 64 << start % 64;
        for (; bits; bits &= bits - 1) {
            const size_t cell = start / 64 * 64 + static_cast<size_t>(__builtin_ctzll(bits));
            if (cell >= range.end) return;
            visit(cell);
        }
    }
}
