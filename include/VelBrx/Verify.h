#pragma once

#include <VelBrx/Export.h>

#include <string>
#include <vector>

namespace VelBrx {

/// Checks a store whole: header, index checksum, segments (inside the file, disjoint, complete), cells inside
/// their parents, points inside their cells, the header's bounds and counts, the records of the points'
/// source. Returns every problem, one line each, at most 100 of a kind; an empty result means that the store
/// is sound. Any thread may call it.
VEL_BRX_EXPORT std::vector<std::string> verifyStore(const std::string& path);

} // namespace VelBrx
