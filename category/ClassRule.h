#pragma once

#include <VelOsgDBBrx/Category.h>

#include <array>
#include <bitset>
#include <cstdint>

class PointTest;

/// Which classes an edit may change, and the class that their points get.
struct ClassRule
{
    std::bitset<256> from = std::bitset<256>().set();
    uint8_t to = 0;
};

/// Makes an edit of classes in memory, a run of records at a time. Constant after construction; any number of
/// threads may use it. The test outlives it.
class ClassRuleEdit
{
public:
    /// How many of the reached points have which class.
    using ClassCounts = std::array<uint64_t, 256>;

    ClassRuleEdit(const PointTest& test, const ClassRule& rule);

    /// `before` receives the classes of `count` consecutive points, `after` the new ones. `current`, if not
    /// null, overrides the classes of the records. `reached` grows by the points that the test accepts.
    void edit(const uint8_t* records, int64_t count, const uint8_t* current, uint8_t* before, uint8_t* after,
              ClassCounts& reached) const;

    /// Adds up what became of the reached points.
    void addCounts(const ClassCounts& reached, VelOsgDBBrx::CategoryCounts& counts) const;

private:
    void editBlock(const uint8_t* records, int count, const uint8_t* before, uint8_t* after,
                   ClassCounts& reached) const;

    const PointTest& _test;
    std::array<uint8_t, 256> _changes{}; ///< for each class, not zero where it gets another
    const uint8_t _to;
};
