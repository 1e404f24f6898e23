#pragma once

#include <VelBrx/FileIdentity.h>
#include <VelBrx/Status.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

/// Number of points whose class differs from the one in their records, by the path of their store.
std::map<std::string, uint64_t> countUnwrittenClasses();

/// Writes `UnwrittenClasses` into the stores, of `only` these files where it is given, single bytes in place,
/// syncs the files, and forgets what is written. A store that cannot be written is left as it is and keeps
/// its entries; the first of these is the failure. The caller is the only one that changes classes.
VelBrx::Status writeClassesToStores(const std::set<VelBrx::FileIdentity>* only = nullptr);
