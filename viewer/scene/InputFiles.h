#pragma once

#include <VelBrx/Status.h>

#include <string>
#include <vector>

/// Puts in the place of each folder the stores (.brx) under it, in the order of their paths, and keeps of
/// each file only the first mention. Fails for a folder without stores.
VelBrx::Status expandFolders(std::vector<std::string>& inputs);
