#pragma once

#include <VelBrx/Status.h>

#include <cstdint>
#include <map>
#include <string>

/// Number of points whose class differs from the one in their records, by the path of their store.
std::map<std::string, uint64_t> countUnwrittenClasses();

/// Writes all of `UnwrittenClasses` into the stores, single bytes in place, syncs the files, and forgets what
/// is written. A store that cannot be written is left as it is and keeps its entries; the first of these is
/// the failure. The caller is the only one that changes classes.
VelBrx::Status writeClassesToStores();
