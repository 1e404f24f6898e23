#pragma once

#include <VelBrx/BuildProgress.h>
#include <VelBrx/Export.h>
#include <VelBrx/KeptEdits.h>
#include <VelBrx/ProjectionRecords.h>
#include <VelBrx/Status.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace VelBrx {

/// What a build will make, by the headers of its inputs.
struct BuildForecast
{
    uint64_t points = 0;
    uint64_t storeBytes = 0; ///< about
};

/// What `buildStore` builds, and with what.
struct BuildOptions
{
    std::vector<std::string>
        inputs; ///< LAS and LAZ files, in the order of their points in the store's origin; a folder means
                ///< for all files under it whose names end in .las or .laz, in the order of their paths
    std::string output;
    bool overwrite = false;   ///< replace `output` when it exists
    bool skipBad = false;     ///< leave out inputs that cannot be read
    bool keepEdits = false;   ///< bring the edits of the store that stands there into the new one
    unsigned threads = 0;     ///< 0: all processors
    uint64_t memory = 0;      ///< bytes that the build may use, at least 128 MiB; 0: half of the machine's
    uint64_t chunkPoints = 0; ///< points that are sorted together at most; 0: what suits memory and caches
    /// Of two inputs that state their coordinate systems in different words: empty where these are one
    /// system, otherwise what differs, for people. Unset: they differ. Called on the thread that called
    /// `buildStore`.
    std::function<std::string(const ProjectionRecords&, const ProjectionRecords&)> compareSystems;
    std::string
        coordinateSystem; ///< OGC WKT that the store states, whatever the inputs do; empty: as they do

    /// Identity of the store; 0 draws a random one. Two builds of the same input with the same identity give
    /// the same bytes.
    uint64_t storeId = 0;
    std::function<void(const BuildForecast&)> forecast; ///< called before points are read, as `progress` is
    std::function<void(const BuildProgress&)> progress; ///< called on the thread that called `buildStore`
    const std::atomic<bool>* cancel = nullptr; ///< set by the caller: the build ends soon and leaves nothing
};

/// What a build made; of one that failed `badInputs` alone means something.
struct BuildReport
{
    uint64_t points = 0;
    uint64_t cells = 0;
    unsigned levels = 0;
    KeptEdits kept; ///< with `keepEdits`
    /// Why inputs cannot be used, one line each that names the file: of a build that failed for them, or,
    /// with `skipBad`, those that are left out.
    std::vector<std::string> badInputs;
    std::vector<std::string> notes; ///< what was repaired, widened or could not be kept, one line each
};

/// Builds an octree store from LAS and LAZ files. Every input point is in the store once, with all its
/// attributes. The store appears under its name only when it is complete; a failed or cancelled build leaves
/// nothing. The normals file of a store that stood there before is removed; beside a journal of edits nothing
/// is built without `keepEdits`. Beside the store a build needs disk space in its folder for a temporary copy
/// of the points. Memory and number of threads do not change the store. Any thread may call it, several at
/// once for different outputs.
///
/// All inputs are tried before a build fails for some that cannot be read.
///
/// With `keepEdits` the new store has the edits of the old one, in a journal of its own: also those that were
/// undone, or not saved. Points are the same where their coordinates are, rounded to the coarser of both
/// grids; in one place GPS time, intensity, returns and source id decide. The old store and its journal stay
/// until both new files are whole. Other processes cannot edit the store meanwhile, this one must not.
VEL_BRX_EXPORT Status buildStore(const BuildOptions& options, BuildReport& report);

} // namespace VelBrx
