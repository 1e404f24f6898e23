#pragma once

#include "store/OriginRecord.h"
#include "store/export/ExportedStore.h"
#include "store/io/ParallelRun.h"
#include "store/io/TemporaryFile.h"
#include "store/part/PointFilter.h"

#include <VelThreads/Mutex.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace VelBrx {

/// What an export takes of the points of one source.
struct SourceTally
{
    uint64_t taken = 0;
    uint64_t wideClass = 0; ///< of them, points with a class above 31
    uint64_t leftOutAsHidden = 0;
};

/// Brings the records of a store into the order of their ordinals with bounded memory: the ordinals are cut
/// into windows whose records fit it. One reading of the store puts each record into its window's part of a
/// temporary file, then one window after the other is loaded and put in order. Where all records fit, there
/// is no temporary file.
class SourceOrder
{
public:
    /// The records come from a store whose origin was checked: each ordinal occurs once. Those that `filter`
    /// does not take are left out. Everything must live as long.
    SourceOrder(const ExportedStore& store, const PointFilter& filter, uint64_t memory, unsigned threads);

    size_t windowCount() const { return _windowCount; }

    /// First ordinal of a window; that behind the last is the number of points.
    uint64_t windowFirst(size_t window) const;

    uint64_t temporarySize() const;

    /// Reads the records. A temporary file goes to the disk of `folder`.
    Status distribute(const std::string& folder, ParallelRun& run);

    /// By source, after `distribute`.
    std::vector<SourceTally> tallies() const;

    /// Loads a window. Call `distribute` first.
    Status load(size_t window, ParallelRun& run);

    /// The store record of an ordinal of the window loaded last; it means nothing where the point is not
    /// taken.
    const uint8_t* record(uint64_t ordinal) const;

    /// From an ordinal of the window loaded last on, a byte for each: 1 where the point is taken, else 0.
    /// Null where all are.
    const uint8_t* taken(uint64_t ordinal) const;

private:
    struct Block;

    Status readBlock(uint64_t first, uint64_t count, Block& block) const;
    void takeOf(uint64_t first, Block& block) const;
    Status spread(const Block& block);
    void place(const Block& block);
    void addTallies(const Block& block);

    const ExportedStore& _store;
    const OriginRecord& _origin;
    const PointFilter& _filter;
    uint64_t _windowPoints;
    size_t _windowCount;
    std::vector<uint64_t> _sourceFirsts; ///< first ordinals
    TemporaryFile _temporary;
    std::unique_ptr<std::atomic<uint64_t>[]> _filled; ///< entries of each window in the temporary file
    std::unique_ptr<uint8_t[]> _records;              ///< of the loaded window in order
    std::unique_ptr<uint8_t[]> _taken;                ///< of the loaded window; none where all are taken
    uint64_t _loadedFirst = 0;
    mutable VelThreads::Mutex _mutex;
    std::vector<SourceTally> _tallies VEL_GUARDED_BY(_mutex);
};

} // namespace VelBrx
