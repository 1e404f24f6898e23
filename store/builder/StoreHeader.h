#pragma once

#include <VelBrx/Builder.h>
#include <VelBrx/StoreStatistics.h>

#include "store/builder/StoreGrid.h"
#include "store/las/LasFile.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VelBrx {

/// Checks that the sources can lie in one store: their coordinate systems are the same, or replaced. Adds to
/// `notes` what differs otherwise.
Status checkCompatible(const std::vector<const LasFile*>& sources, const BuildOptions& options,
                       std::vector<std::string>& notes);

/// LAS header and VLRs of a store of the checked `sources`: the VLRs of the first, less those that speak of
/// the layout of its records.
struct StoreHeaderContent
{
    const std::vector<const LasFile*>& sources;
    const StoreGrid& grid;
    const StoreStatistics& statistics;
    uint64_t pointCount = 0;
    uint32_t evlrCount = 0;
    const std::string& coordinateSystem; ///< OGC WKT in place of what the sources state; empty: as they do
};

std::vector<uint8_t> makeStoreHeader(const StoreHeaderContent& content);

} // namespace VelBrx
