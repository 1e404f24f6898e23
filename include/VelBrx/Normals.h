#pragma once

#include <VelBrx/BrxHeader.h>
#include <VelBrx/BuildProgress.h>
#include <VelBrx/Export.h>
#include <VelBrx/Status.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace VelBrx {

/// \name Neighbours that a plane is fitted to, the point itself among them
/// @{
constexpr unsigned kLeastNeighbours = 3;
constexpr unsigned kMostNeighbours = 256;
/// @}

/// What `writeNormals` works on, and with what.
struct NormalsOptions
{
    std::string store;
    unsigned neighbours = 16;                           ///< `kLeastNeighbours` to `kMostNeighbours`
    bool overwrite = false;                             ///< replace the normals file when it exists
    unsigned threads = 0;                               ///< 0: all processors
    std::function<void(const BuildProgress&)> progress; ///< called on the thread that called `writeNormals`
    const std::atomic<bool>* cancel = nullptr; ///< set by the caller: the work ends soon and leaves nothing
};

/// The place of a store's normals file: its path with ".normals" behind it.
VEL_BRX_EXPORT std::string normalsPath(const std::string& store);

/// Whether the file at `path` holds the normals of the store that has this header: it names the store and has
/// a normal for each point. Files of version 1 name no store, and are known by their number of points. A
/// failure names the file, what is wrong with it and what to do. Any thread may call it.
VEL_BRX_EXPORT Status checkNormals(const std::string& path, const BrxHeader& store);

/// `normalsPath(store)` where that file holds the store's normals, otherwise empty.
VEL_BRX_EXPORT std::string findNormals(const std::string& store);

/// Computes a normal for every point of a store and writes its normals file.
///
/// The normal of a point is the normal of the plane through the point's nearest neighbours in all cells, by
/// least squares (the eigenvector of least eigenvalue of their covariance), of unit length, in the axes of
/// the store's coordinates. Of points at equal distance those that stand first in the store are taken. It
/// points upwards: z > 0; where z is 0 x > 0; where x is 0 too y > 0. Neighbours that lie on a line give the
/// normal of the line that points upwards most, x where the line is vertical; neighbours in one place give z.
///
/// Memory does not grow with the store except for its index: about 60 MB a thread, more where a single cell
/// has more than a quarter of a million points. The file appears when it is complete; failed or cancelled
/// work leaves nothing. Any thread may call it.
VEL_BRX_EXPORT Status writeNormals(const NormalsOptions& options);

} // namespace VelBrx
