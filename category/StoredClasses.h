#pragma once

#include "loading/UnwrittenClasses.h"

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/ref_ptr>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// The class bytes of point records.

/// Copies the class bytes of consecutive records.
void gatherClasses(const uint8_t* records, int64_t count, uint8_t* classes);

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

/// Number of points whose class differs from the one in their records, by the path of their store.
std::map<std::string, uint64_t> countUnwrittenClasses();

/// Writes all of `UnwrittenClasses` into the stores, single bytes in place, syncs the files, and forgets what
/// is written. A store that cannot be written is left as it is and keeps its entries; the first of these is
/// the failure. The caller is the only one that changes classes.
VelBrx::Status writeClassesToStores();
