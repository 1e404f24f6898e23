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

/// Whether the file is a store, sound or damaged: a LAS 1.4 file whose head can be read and that has an
/// octree index. Of other files `verifyStore` names one problem, which says what they are. Any thread may
/// call it.
VEL_BRX_EXPORT bool isStore(const std::string& path);

} // namespace VelBrx
