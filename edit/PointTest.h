#pragma once

#include <cstdint>
#include <vector>

class CellData;

/// Which points of one store an edit reaches. Constant after construction; any number of threads may use it.
class PointTest
{
public:
    static constexpr int kBlock = 128; ///< records tested at once

    virtual ~PointTest() = default;

    /// The cells that can hold reached points; no other is read.
    virtual std::vector<CellData*> cells() const = 0;

    /// Writes a byte for each of `count` consecutive records, at most kBlock: not zero where the point is
    /// reached. `accepted` has room for kBlock bytes. `classes`: the current classes of these points, unsaved
    /// edits included.
    virtual void test(const uint8_t* records, int count, const uint8_t* classes, uint8_t* accepted) const = 0;

    /// Where it is false, `classes` may be null.
    virtual bool readsClasses() const { return true; }
};
