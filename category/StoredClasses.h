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

/// The open octree that the cell belongs to; null when it is closed.
osg::ref_ptr<OctreeInfo> openOctree(const CellPlace& place);

/// Fills `classes` with those in the records of a cell. False when some of the records cannot be mapped.
bool readClasses(const OctreeInfo& octree, const CellData& cell, std::vector<uint8_t>& classes);

/// The cell's entry in `UnwrittenClasses`, or one made from its records; without classes when these cannot
/// be read. The caller is the only one that changes classes.
UnwrittenClasses::Cell currentCell(const CellPlacePtr& place);

size_t countDifferent(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);

/// Number of points whose class differs from the one in their records, by the path of their store.
std::map<std::string, uint64_t> countUnwrittenClasses();

/// Writes all of `UnwrittenClasses` into the stores, single bytes in place, syncs the files, and forgets what
/// is written. Nothing is written when one of the stores cannot be. The caller is the only one that changes
/// classes.

VelBrx::Status writeClassesToStores();
