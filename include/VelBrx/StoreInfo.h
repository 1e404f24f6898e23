#pragma once

#include <VelBrx/BrxHeader.h>
#include <VelBrx/CellWithSegment.h>
#include <VelBrx/Export.h>
#include <VelBrx/File.h>
#include <VelBrx/Status.h>
#include <VelBrx/StoreStatistics.h>

#include <memory>
#include <string>
#include <vector>

namespace VelBrx {

/// All that a store says about itself besides its points.
struct StoreInfo
{
    BrxHeader header;
    std::vector<CellWithSegment> cells; ///< coarse levels first, each level in ascending key code
    StoreStatistics statistics;
};

/// Reads and checks header and octree index of the store at `path`. A failure names the file, what is wrong
/// and what to do, and leaves `info` unchanged. Any thread may call it.
VEL_BRX_EXPORT Status readStoreInfo(const std::string& path, StoreInfo& info);

/// The same, and maps the store's bytes. The file is opened once, so that header, cells and points are those
/// of one file also where the store is being replaced at this moment. `file` is not valid where the points
/// cannot be mapped into memory; a failure leaves it unchanged too.
VEL_BRX_EXPORT Status openStore(const std::string& path, StoreInfo& info, std::unique_ptr<File>& file);

/// The names, without folders, of the files that the store at `path` was built from, in the order in which
/// they were given; empty where the store does not say. A failure names the file, what is wrong and what to
/// do, and leaves `names` unchanged. Any thread may call it.
VEL_BRX_EXPORT Status readSourceNames(const std::string& path, std::vector<std::string>& names);

} // namespace VelBrx
