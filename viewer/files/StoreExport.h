#pragma once

#include <VelBrx/BuildProgress.h>
#include <VelBrx/Status.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

/// Writes the points of a store to a LAS, LAZ or COPC file, by the name's ending. `told` gets lines for
/// people: the files with their points, and what the format could not hold.
VelBrx::Status exportStore(const std::string& store, const std::string& file, bool replace,
                           const std::function<void(const VelBrx::BuildProgress&)>& progress,
                           const std::atomic<bool>& cancel, std::vector<std::string>& told);
