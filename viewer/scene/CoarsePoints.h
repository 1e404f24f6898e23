#pragma once

#include <VelOsgDBBrx/OctreeInfo.h>

#include <cstdint>
#include <functional>

/// Hands out the point records of a store's coarsest cells, whole levels of them, until there are `enough`
/// points; `take` gets `count` records one behind the other and returns false to end. Leaves out what the
/// file has no more. Any thread may call it.
void readCoarsePoints(const OctreeInfo& octree, int64_t enough,
                      const std::function<bool(const uint8_t* records, int64_t count)>& take);
