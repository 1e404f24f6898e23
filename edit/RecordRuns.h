#pragma once

#include <VelBrx/CellWithSegment.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

/// Finds the cells of records. A store's cells have runs of its records, no record twice. One thread at a
/// time.
class RecordRuns
{
public:
    /// Adds a cell, to be named `cell`. Call `sort` after the last.
    void add(const std::vector<VelBrx::Segment>& segments, size_t cell)
    {
        uint32_t place = 0;
        for (const VelBrx::Segment& segment : segments) {
            if (segment.first < 0 || segment.count <= 0) continue;
            const auto first = static_cast<uint64_t>(segment.first);
            _runs.push_back({first, first + static_cast<uint64_t>(segment.count), cell, place});
            place += static_cast<uint32_t>(segment.count);
        }
    }

    void sort()
    {
        std::sort(_runs.begin(), _runs.end(), [](const Run& a, const Run& b) { return a.first < b.first; });
    }

    /// Calls `visit(cell, place, done, count)` for the cells of the records [first, first + count): `place`
    /// is that of record `first + done` in the cell's point order. Records of no cell are left out. Near the
    /// records before it takes no search.
    template <class Visit>
    void forEachCell(uint64_t first, uint64_t count, Visit visit)
    {
        const uint64_t end = first + count;
        if (_last >= _runs.size() || first < _runs[_last].first || first >= _runs[_last].end)
            _last = static_cast<size_t>(
                std::upper_bound(_runs.begin(), _runs.end(), first,
                                 [](uint64_t record, const Run& run) { return record < run.end; }) -
                _runs.begin());
        for (size_t i = _last; i < _runs.size() && _runs[i].first < end; ++i) {
            const Run& run = _runs[i];
            const uint64_t from = std::max(first, run.first);
            visit(run.cell, run.place + static_cast<uint32_t>(from - run.first), from - first,
                  std::min(end, run.end) - from);
            _last = i;
        }
    }

private:
    struct Run
    {
        uint64_t first;
        uint64_t end;
        size_t cell;
        uint32_t place;
    };

    std::vector<Run> _runs; ///< ascending
    size_t _last = 0;       ///< the run that was met last
};
