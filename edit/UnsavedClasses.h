#pragma once

#include <VelBrx/EditJournal.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <array>
#include <cstdint>
#include <memory>

/// The classes of a store that are in its journal, or in memory alone, and not in its point records. The
/// caller holds `classEditMutex` and the edit lock of the store.

/// Whether this process has edited classes of the store that are not in its records.
bool hasUnwrittenClasses(const OctreeInfo& octree);

/// Points of the store that have another class than their records.
uint64_t countUnwrittenClasses(const OctreeInfo& octree);

/// By class, the points that have it as edited less those that have it in their records. Any thread may call
/// it, without the locks: it finds each cell as it is at some moment.
std::array<int64_t, 256> unwrittenDifference(const OctreeInfo& octree);

/// What the journal has and the store has not is shown again; what was edited without this journal is
/// written down in it. A point that something else has given another class in the store since keeps that,
/// as a change of its own: `replaced` is their number. After a failure the classes in memory are as before.
VelBrx::Status takeOverClasses(OctreeInfo& octree, const std::shared_ptr<VelBrx::EditJournal>& journal,
                               uint64_t& replaced);

/// Gives all points the classes of their records, as a change of its own in the journal, if there is one:
/// `change` is its number, 0 where there is none. `edit`: author (empty: the journal's), time, operation.
VelBrx::Status dropUnwrittenClasses(OctreeInfo& octree, const std::shared_ptr<VelBrx::EditJournal>& journal,
                                    VelBrx::EditDescription edit, uint64_t& points, uint64_t& change);
