#pragma once

#include <VelBrx/Status.h>

#include "store/io/DiskFile.h"
#include "store/journal/JournalFormat.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace VelBrx::Journal {

/// Consecutive points of the store and what their byte was and becomes, under the mask of the entry. A step
/// is 0 where all points have the same value, else 1.
struct ChangeRun
{
    uint64_t first;
    uint64_t count;
    const uint8_t* before;
    const uint8_t* after;
    size_t beforeStep;
    size_t afterStep;
};

/// Takes points and makes blocks of runs of them. Its memory is bounded. One thread at a time.
class RunEncoder
{
public:
    /// `number` is that of the entry.
    explicit RunEncoder(uint64_t number) : _number(number) {}

    /// Adds consecutive points, at least one; none twice. Ascending points take the least room. `isFull` must
    /// be false.
    void add(uint64_t first, uint64_t count, uint8_t before, uint8_t after)
    {
        if (first == _end && before == _run.before && after == _run.after && _run.count > 0)
            _run.count += count;
        else
            startRun(first, count, before, after);
        _end = first + count;
    }

    /// A block's worth is there: take it with `finishBlock` before more is added.
    bool isFull() const { return _data.size() > kFull; }

    /// Ends the block and gives its bytes, valid until the next `add`; empty where nothing was added.
    const std::vector<uint8_t>& finishBlock();

    uint64_t points() const { return _points; } ///< in the blocks that are finished

private:
    struct Run
    {
        uint64_t count = 0;
        uint8_t before = 0;
        uint8_t after = 0;
    };
    static constexpr size_t kFull = 40 << 10;
    static constexpr size_t kMostStretch = 1024; ///< runs

    void startRun(uint64_t first, uint64_t count, uint8_t before, uint8_t after);
    void encodeStretch();
    void putRun(const Run& run);
    void putShortRuns(const Run* runs, const Run* end);
    void putCount(uint64_t count, unsigned form);

    const uint64_t _number;
    uint64_t _end = 0;         ///< behind the last point that was added
    Run _run;                  ///< the one that grows, the last of the stretch
    std::vector<Run> _stretch; ///< runs before it that are one behind the other
    uint64_t _stretchStart = 0;
    uint64_t _encodedEnd = 0; ///< behind the last point that is in _data
    bool _hasLast = false;    ///< _data has a run with constant values; the last one has these:
    uint8_t _lastBefore = 0;
    uint8_t _lastAfter = 0;
    uint64_t _blockPoints = 0;
    uint64_t _points = 0;
    uint64_t _base = 0;
    std::vector<uint8_t> _data; ///< the block, its head first
    std::vector<uint8_t> _finished;
};

/// Called with the runs of a block; a failure ends the reading. The values belong to the reader.
using RunsVisitor = std::function<Status(const std::vector<ChangeRun>& runs)>;

/// Reads the runs of a change, whose head is at `position`, block by block, each block checked. Memory does
/// not grow with the runs. The message of a failure follows the name of the journal.
Status readRuns(const DiskFile& file, const EntryHead& head, uint64_t position, uint64_t pointCount,
                const RunsVisitor& visit);

} // namespace VelBrx::Journal
