#pragma once

#include "loading/UnwrittenClasses.h"

#include <VelBrx/EditJournal.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelThreads/Mutex.h>

#include <osg/ref_ptr>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// The classes of cells: in point records, as edited, and how an edit becomes known.

/// Held by every change of classes. Taken before the lock of a store.
VelThreads::Mutex& classEditMutex();

/// Copies the class bytes of consecutive records.
void gatherClasses(const uint8_t* records, int64_t count, uint8_t* classes);

/// The classes in the records of a cell. False where some of these could not be read: their classes are 0.
bool readClasses(VelBrx::File& file, const CellPlace& place, std::vector<uint8_t>& classes);

/// The open octree that the cell belongs to; where that was closed, another one of the same file. Null when
/// the file is not open.
osg::ref_ptr<OctreeInfo> openOctree(const CellPlace& place);

/// The cell's entry in `UnwrittenClasses`, or one made from its records, in which points are 0 whose records
/// cannot be mapped; without classes when its file was not known. The caller is the only one that changes
/// classes.
UnwrittenClasses::Cell currentCell(const CellPlacePtr& place);

/// Which of up to 64 classes differ: bit i for the i-th.
uint64_t differingBits(const uint8_t* a, const uint8_t* b, size_t count);

size_t countDifferent(const uint8_t* a, const uint8_t* b, size_t count);

/// Both have the same size.
size_t countDifferent(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);

/// One cell before and after a change. Points whose records could not be mapped are 0 in both where nobody
/// has edited them.
struct EditedCell
{
    CellPlacePtr place;
    ClassesPtr before;
    ClassesPtr after;
};

/// Makes new classes known: first to those who read cells, then in the cells that are loaded already. The
/// caller holds `classEditMutex`, and the edit lock of the store where that is open.
void publishClasses(const std::vector<EditedCell>& cells);

/// The same for cells of one store, after they are in its journal; where that is null nothing is written
/// down. After a failure nothing has changed. `edit` needs author, time and operation alone. `change` is the
/// number in the journal; 0 where there is none. The places of the cells become those with this journal.
VelBrx::Status recordAndPublishClasses(std::vector<EditedCell>& cells,
                                       const std::shared_ptr<VelBrx::EditJournal>& journal,
                                       VelBrx::EditDescription edit, uint64_t& change);
