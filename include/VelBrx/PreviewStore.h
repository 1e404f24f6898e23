#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/Status.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace VelBrx {

class TemporaryFile;

/// What `buildPreview` samples.
struct PreviewOptions
{
    std::string input;                         ///< a LAS or LAZ file
    uint64_t points = 1000000;                 ///< of the sample, at most about
    uint64_t leastPoints = 0;                  ///< of the survey; one of fewer gets no preview
    double seconds = 1.5;                      ///< that reading the sample takes at most, about
    std::string folder;                        ///< of temporary files; empty: the system's
    unsigned threads = 0;                      ///< 0: all processors
    const std::atomic<bool>* cancel = nullptr; ///< set by the caller: it ends soon
};

/// A store without a name, of points spread evenly over a survey: something to look at while the survey's own
/// store is built. Its places, attributes and coordinate system are the survey's. The file goes with this
/// object and those that have opened it, and with the process, however that ends.
///
/// Threads: one at a time.
class VEL_BRX_EXPORT PreviewStore
{
public:
    PreviewStore();
    ~PreviewStore();
    PreviewStore(PreviewStore&& other) noexcept;
    PreviewStore& operator=(PreviewStore&& other) noexcept;

    /// What to open it by, in this process, as long as this object lives; what is open stays so.
    std::string path() const;

    /// Of the survey, as its file has them.
    uint64_t surveyPoints() const { return _surveyPoints; }

    /// Of the sample.
    uint64_t points() const { return _points; }

private:
    friend VEL_BRX_EXPORT Status buildPreview(const PreviewOptions& options, PreviewStore& preview);

    std::unique_ptr<TemporaryFile> _file;
    uint64_t _surveyPoints = 0;
    uint64_t _points = 0;
};

/// Builds a preview in the memory and time that its points take, whatever the survey's size; leaves `preview`
/// as it is where the survey is too small for one. Fails, with one
/// line, for a file that no store can be built of, and where its points are compressed in such large pieces
/// that no even sample can be had in the time. Damage between the points of the sample is not found. Any
/// thread may call it, several at once.
VEL_BRX_EXPORT Status buildPreview(const PreviewOptions& options, PreviewStore& preview);

} // namespace VelBrx
