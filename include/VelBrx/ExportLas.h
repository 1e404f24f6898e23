#pragma once

#include <VelBrx/BuildProgress.h>
#include <VelBrx/Export.h>
#include <VelBrx/Status.h>
#include <VelBrx/StorePart.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace VelBrx {

/// Which files an export makes.
enum class ExportForm
{
    /// A store of one source as with `Split`, but to a file; a store of several as with `Merged`.
    Automatic,
    /// Every source as it was, one file each in a folder: its header, VLRs, point format, order of points,
    /// EVLRs.
    Split,
    /// One LAS 1.4 file of all sources, one behind the other: the store's scale, offset and VLRs; point
    /// format 6, 7 where a source has colours, 8 where one has near infrared. Extra bytes stay where all
    /// sources describe them alike and the records have room. Wave packets and EVLRs are left out.
    Merged
};

/// What `exportLas` writes, and with what.
struct ExportOptions
{
    std::string store;
    /// A LAS, LAZ or COPC file; with `ExportForm::Split` a folder, which is made where there is none.
    std::string output;
    ExportForm form = ExportForm::Automatic;
    StorePart part;         ///< where it is not everything, headers describe the points that are written
    bool overwrite = false; ///< replace files that exist
    unsigned threads = 0;   ///< 0: all processors
    /// Bytes to use at most, from 24 MiB a thread on, 40 for LAZ. Heads come on top.
    uint64_t memory = 1u << 30;
    std::function<void(const BuildProgress&)> progress; ///< called on the thread that called `exportLas`
    const std::atomic<bool>* cancel = nullptr; ///< set by the caller: the export ends soon and leaves nothing
};

/// A file that an export made.
struct ExportedFile
{
    std::string path;
    uint64_t points = 0;
    uint64_t changed = 0; ///< of them, points whose class or withheld bit differs from the source
};

/// What an export wrote; means nothing where it failed.
struct ExportReport
{
    std::vector<ExportedFile> files;
    uint64_t leftOut = 0;           ///< points of the store that are in none of the files
    uint64_t hiddenLeftOut = 0;     ///< of them, those that are hidden, where hidden points are left out
    std::vector<std::string> notes; ///< what a merged file could not keep, one line each
};

/// Writes the points of a store back to LAS; to LAZ where the name ends in ".laz", and to COPC 1.0, merged,
/// where it ends in ".copc.laz". In the form of its source an unedited store gives the source's
/// bytes back; edits show in the class and in the withheld bit, which is set where a point is hidden. A
/// compressed source of `Split` is compressed again, in the form of its point format that is written today;
/// its points are the same. Files appear under their names when all are complete; a failed or cancelled
/// export leaves nothing. Fails where a class above 31 meets a point format that has no room for it. A store
/// of which the points do not fit `memory` needs its size again as temporary disk space in the folder of the
/// output. Only the cells that a box or polygons touch are read; thinning reads the points twice before. Any
/// thread may call it.
VEL_BRX_EXPORT Status exportLas(const ExportOptions& options, ExportReport& report);

} // namespace VelBrx
