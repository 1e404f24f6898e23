#pragma once

#include "store/export/ExportFiles.h"
#include "store/export/ExportPlan.h"
#include "store/export/SourceOrder.h"
#include "store/io/ParallelRun.h"

#include <vector>

namespace VelBrx {

/// Writes the points of an export into its files, window after window, in blocks that are encoded in
/// parallel. A file is finished when its last point is written, so that few are open at a time.
class PointExport
{
public:
    /// Everything must live as long.
    PointExport(const ExportPlan& plan, const ExportFiles& files, ParallelRun& run)
        : _plan(plan), _files(files), _run(run)
    {
    }

    /// Writes all points.
    Status write(SourceOrder& order);

private:
    /// Consecutive points of one source that are written together.
    struct Block
    {
        size_t output;
        size_t source;
        uint64_t first;     ///< ordinal
        uint64_t count;     ///< points in the store
        uint64_t taken = 0; ///< points of them that are written
        uint64_t place = 0; ///< number of its first point in the output
    };

    /// What the flags record keeps of a block's points: flags and classes one byte a point.
    struct Kept
    {
        std::vector<uint8_t> flags;
        std::vector<uint8_t> classes;
        std::vector<uint8_t> rests;
    };

    Status writeWindow(const SourceOrder& order, size_t window);
    Status finish(ExportOutput& output);
    Status writeRange(const SourceOrder& order, uint64_t first, uint64_t end);
    std::vector<Block> blocksOf(uint64_t first, uint64_t end) const;
    Status placeBlocks(const SourceOrder& order, std::vector<Block>& blocks);
    Status writeBlock(const SourceOrder& order, const Block& block) const;
    uint64_t applyEdits(const SourceOrder& order, const Block& block, Kept& kept) const;
    bool readKept(const Block& block, Kept& kept) const;

    const ExportPlan& _plan;
    const ExportFiles& _files;
    ParallelRun& _run;
    size_t _nextOutput = 0;   ///< the first that is not finished
    size_t _placedOutput = 0; ///< the output of the block that was placed last,
    uint64_t _placed = 0;     ///< and how many of its points have a place
};

} // namespace VelBrx
