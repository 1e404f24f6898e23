#pragma once

#include <VelBrx/StorePart.h>

#include "store/io/ParallelRun.h"
#include "store/las/LasLayout.h"
#include "store/part/MapArea.h"
#include "store/part/PointThinning.h"
#include "store/part/StoreFile.h"

#include <utility>
#include <vector>

namespace VelBrx {

/// Decides which points of a store an export takes. Constant after `choose`; any thread may ask then.
class PointFilter
{
public:
    /// Success when the part means something: numbers in order, polygons of three vertices or more.
    static Status check(const StorePart& part);

    /// `part` and `store` must live as long.
    PointFilter(const StorePart& part, const StoreFile& store, const StoreIndex& index);

    /// How many times `choose` goes over all points.
    unsigned passes() const { return _part.spacing > 0 ? PointThinning::kPasses : 0; }

    /// Chooses the points of a thinned export with at most `memory` bytes, and those for a bit a point. To be
    /// called before the points are asked for.
    Status choose(const StoreIndex& index, uint64_t memory, ParallelRun& run);

    bool takesAll() const { return _takesAll; }

    /// Whether a point is left out for nothing but being hidden.
    bool leavesOutAsHidden(const uint8_t* record) const
    {
        return _part.visibleOnly && isHidden(record) && isMeant(record);
    }

    /// Whether the point with this place in the store is taken, by its record in the store.
    bool takes(uint64_t place, const uint8_t* record) const
    {
        return _takesAll || (isWanted(record) && (_part.spacing <= 0 || _thinning.keeps(place)));
    }

    /// False where none of some points that follow on one another is taken, by their cells.
    bool mayTakeAnyOf(uint64_t first, uint64_t count) const;

private:
    static bool isHidden(const uint8_t* record) { return record[LasLayout::kFlags] & LasLayout::kHiddenBits; }
    bool isWanted(const uint8_t* record) const
    {
        return !(_part.visibleOnly && isHidden(record)) && isMeant(record);
    }
    bool isMeant(const uint8_t* record) const
    {
        return _part.classes[record[LasLayout::kClass]] && (!_hasPlace || isInPlace(record));
    }
    bool isInPlace(const uint8_t* record) const;
    bool meets(const StoreIndex& index, const IndexCell& cell) const;
    void findRanges(const StoreIndex& index);

    const StorePart& _part;
    const StoreFile& _store;
    bool _hasPlace;
    bool _takesAll;
    std::vector<MapArea> _areas;
    std::vector<std::pair<uint64_t, uint64_t>>
        _ranges; ///< first and end of what cells in place hold, in order
    PointThinning _thinning;
};

} // namespace VelBrx
