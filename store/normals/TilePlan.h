#pragma once

#include "store/normals/CellSpace.h"

#include <vector>

namespace VelBrx {

/// Cuts space into cubes with at most about `points` points each, in an order in which cubes that follow each
/// other lie close together. Every point of the store lies in one of them.
std::vector<SpaceBox> planTiles(const CellSpace& space, uint64_t points);

} // namespace VelBrx
