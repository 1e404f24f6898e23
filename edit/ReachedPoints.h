#pragma once

#include "edit/PointTest.h"
#include "loading/PointRecords.h"
#include "loading/UnwrittenClasses.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

/// The current classes of a cell's points, chunk by chunk of at most `kMost`; null where nobody looks at
/// them.
template <int kMost>
class ClassReader
{
public:
    ClassReader(const CellData& cell, bool isWanted) : _isWanted(isWanted)
    {
        if (isWanted) _unwritten = UnwrittenClasses::instance().current(cell.identifier);
    }

    /// Those of `count` records, the first of which is at `place` in the cell's point order.
    const uint8_t* read(const uint8_t* records, int count, size_t place)
    {
        if (!_isWanted) return nullptr;
        if (_unwritten) return _unwritten->data() + place;
        for (int i = 0; i < count; ++i)
            _classes[i] = records[i * kRecordSize + kClassByte];
        return _classes;
    }

private:
    const bool _isWanted;
    ClassesPtr _unwritten;
    uint8_t _classes[kMost];
};

/// Calls `visit(records, count, accepted)` for blocks of a cell's records, with a byte for each that tells
/// whether a test reaches the point. False where some records could not be read. The caller holds the store's
/// edit lock.
template <class Visit>
bool forEachTested(const OctreeInfo& octree, const CellData& cell, const PointTest& test, Visit visit)
{
    ClassReader<PointTest::kBlock> classes(cell, test.readsClasses());
    return forEachRun(octree, cell, [&](const uint8_t* records, int64_t count, uint32_t place) {
        for (int64_t done = 0; done < count; done += PointTest::kBlock) {
            const uint8_t* const block = records + done * kRecordSize;
            const int length = static_cast<int>(std::min<int64_t>(PointTest::kBlock, count - done));
            uint8_t accepted[PointTest::kBlock];
            test.test(block, length, classes.read(block, length, place + static_cast<size_t>(done)),
                      accepted);
            visit(block, length, accepted);
        }
    });
}
