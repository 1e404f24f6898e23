#pragma once

#include <VelOsgDBBrx/OpenCloud.h>

#include <string>

class PointCloudImpl;

/// Opens a store and gives it to a cloud that has none, in the local frame. `opened` holds the cloud as its
/// node too. `normalsPath` may be empty or of no use; `opened.normals` says so. The points may prove not to
/// be mapped: `pointFile` is not valid then.
VelBrx::Status fillCloud(PointCloudImpl& cloud, const std::string& path, const std::string& normalsPath,
                         VelOsgDBBrx::OpenedCloud& opened);
