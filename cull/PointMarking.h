#pragma once

#include "edit/EditControl.h"
#include "edit/PointTest.h"

#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// How the flag byte of points is changed, and which points are.
struct PointMark
{
    bool ofHidden; ///< changes hidden points, else visible ones
    uint8_t cleared;
    uint8_t set;

    uint8_t of(uint8_t flags) const { return static_cast<uint8_t>((flags & ~cleared) | set); }
};

extern const PointMark kHideMark;
extern const PointMark kShowMark;

constexpr int kMarkChunk = 14 * PointTest::kBlock; ///< records marked at once: about what is written at once

/// Tests up to `kMarkChunk` records; returns how many are to be marked, and their places. `classes` as
/// of `PointTest::test`.
size_t findMarked(const uint8_t* records, int count, const uint8_t* classes, const PointTest& test,
                  const PointMark& mark, uint16_t* places);

/// Marks the points of the cells that a test reaches, through the store's journal, which is on; they are
/// found on half of the processors. `edit`: see `JournalledEdit`. Returns the change's number; 0 where there
/// was nothing to change, or where it was cancelled before it was done: nothing has changed then. The caller
/// holds the store's edit lock.
uint64_t markJournalled(OctreeInfo& octree, const std::vector<CellData*>& cells, const PointTest& test,
                        const PointMark& mark, const VelBrx::EditDescription& edit, EditControl* control,
                        VelOsgDBBrx::CmdResult& result);

/// Reaches every point of a store.
class EveryPoint : public PointTest
{
public:
    explicit EveryPoint(const OctreeInfo& octree) : _octree(octree) {}
    std::vector<CellData*> cells() const override;
    void test(const uint8_t* records, int count, const uint8_t* classes, uint8_t* accepted) const override;
    bool readsClasses() const override { return false; }

private:
    const OctreeInfo& _octree;
};
