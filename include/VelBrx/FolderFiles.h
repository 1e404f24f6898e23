#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/Status.h>

#include <set>
#include <string>
#include <vector>

namespace VelBrx {

/// Finds the files under `folder`, those in its folders too, whose names end in one of `extensions` (in lower
/// case, with the dot; names may have capitals). Links to folders are followed, but each folder is entered
/// once, however many links lead to it. `files` gets their paths in order. A failure names the folder that
/// cannot be listed. Any thread may call it.
VEL_BRX_EXPORT Status findFiles(const std::string& folder, const std::set<std::string>& extensions,
                                std::vector<std::string>& files);

} // namespace VelBrx
