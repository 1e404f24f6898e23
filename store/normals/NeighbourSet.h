#pragma once

#include "store/normals/CellSpace.h"

#include <limits>
#include <vector>

namespace VelBrx {

/// The nearest points found so far, in order of distance, then of their place in the store: the same set
/// whatever the order in which points are offered.
class NeighbourSet
{
public:
    explicit NeighbourSet(size_t capacity) : _capacity(capacity) { _entries.reserve(capacity); }

    void clear() { _entries.clear(); }
    size_t capacity() const { return _capacity; }
    size_t size() const { return _entries.size(); }
    bool isFull() const { return _entries.size() == _capacity; }

    /// Points farther than this are of no use; those at this distance may be.
    double reach() const
    {
        return isFull() ? _entries.back().squaredDistance : std::numeric_limits<double>::infinity();
    }

    void offer(double squaredDistance, const SpacePoint& point)
    {
        const Entry entry{squaredDistance, point.index, &point.position};
        if (isFull()) {
            if (!entry.isBefore(_entries.back())) return;
            _entries.pop_back();
        }
        size_t place = _entries.size();
        _entries.push_back(entry);
        for (; place > 0 && entry.isBefore(_entries[place - 1]); --place)
            _entries[place] = _entries[place - 1];
        _entries[place] = entry;
    }

    /// The positions that the offered points have, nearest first; they must be there still.
    void positions(std::vector<const Position*>& positions) const
    {
        positions.clear();
        for (const Entry& entry : _entries)
            positions.push_back(entry.position);
    }

private:
    struct Entry
    {
        double squaredDistance;
        uint64_t index;
        const Position* position;

        bool isBefore(const Entry& other) const
        {
            return squaredDistance != other.squaredDistance ? squaredDistance < other.squaredDistance
                                                            : index < other.index;
        }
    };

    size_t _capacity;
    std::vector<Entry> _entries;
};

} // namespace VelBrx
