#pragma once

#include <cstdint>

namespace VelBrx {

/// How far long work on a store is: a build, an export, normals.
struct BuildProgress
{
    const char* stage = "";   ///< what is being done, for people
    uint64_t pointsDone = 0;  ///< the part of the whole work that is done, in points of the input
    uint64_t pointsTotal = 0; ///< 0 while unknown
};

} // namespace VelBrx
