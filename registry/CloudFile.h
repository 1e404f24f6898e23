#pragma once

#include <VelOsgDBBrx/OpenCloud.h>

#include <string>

/// Makes the cloud of a store in the local frame, `opened.node` as well. `normalsPath` may be empty or of no
/// use; `opened.normals` says so. The points may prove not to be mapped: `pointFile` is not valid then.
VelBrx::Status readCloud(const std::string& path, const std::string& normalsPath,
                         VelOsgDBBrx::OpenedCloud& opened);
