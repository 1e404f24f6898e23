#pragma once

#include <VelBrx/Builder.h>

#include "store/builder/StoreGrid.h"
#include "store/io/ParallelRun.h"
#include "store/las/PointSource.h"
#include "store/las/RecordFormat.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace VelBrx {

/// One input file of a build.
struct BuildSource
{
    std::unique_ptr<PointSource> points;
    RecordFormat format;
    uint64_t firstOrdinal = 0; ///< ordinals of its points start here
    RecordScan scan;
};

/// The input files of a build in their order, and what a first reading of all their points gives. Those that
/// cannot be read are found out all, not the first alone.
class SourceSet
{
public:
    /// Opens the files, files in folders too, and reads their heads.
    Status open(const std::vector<std::string>& paths);

    /// Adds points that have been opened.
    void add(std::unique_ptr<PointSource> points);

    /// Why files cannot be used, a line each: of those found by one reading in the order of the files.
    std::vector<Status> bad() const;

    /// Notes that the points of a source cannot be read. Any thread.
    void noteUnreadable(size_t source, const Status& why);

    /// No source was noted so since `dropUnreadable`.
    bool areReadable() const;

    /// Takes the sources out whose points cannot be read. Fails where none is left with points.
    Status dropUnreadable();

    /// Called with each batch of source records that is read, on any thread.
    using BatchVisitor = std::function<void(size_t source, const PointBatch& batch)>;

    /// Reads the places of all points once, and as many colours as it takes to know their width. Afterwards
    /// `notes` says what is wrong in the headers. Of compressed sources up to `keptBytes` of decoded records
    /// stay in memory for the readings to come. Succeeds too where some cannot be read: see `areReadable`.
    Status scan(ParallelRun& run, uint64_t keptBytes, const BatchVisitor& visit);

    /// Reads the places of all points once more.
    Status read(ParallelRun& run, const BatchVisitor& visit) const;

    const std::vector<BuildSource>& sources() const { return _sources; }
    uint64_t pointCount() const { return _pointCount; }
    std::vector<const LasFile*> files() const;

    /// As the points are, after `scan`.
    std::vector<SourceExtent> extents() const;

    /// As the headers state them, right or wrong.
    std::vector<SourceExtent> statedExtents() const;

    /// Whether colours are 8-bit values in 16-bit fields: none above 255 and not all zero.
    bool hasNarrowColors() const;

    /// A part of one source.
    struct Part
    {
        size_t source;
        uint64_t index;
        size_t number; ///< among all parts
    };
    /// All parts of all sources in order.
    std::vector<Part> parts() const;

    /// `PointSource::readPart`, from memory where the part was kept. Any thread.
    Status readPart(const Part& part, const PointSource::Use& use, RecordFields fields) const;

    /// Gives back the memory of a part that is not read again. Any thread; nobody reads the part.
    void forget(const Part& part);

    /// What seemed wrong with the files, and with their points as far as they have been decoded.
    std::vector<std::string> notes() const;

private:
    Status open(const std::string& path, bool isOnly);
    void noteHeader(const BuildSource& source);

    std::vector<BuildSource> _sources;
    std::vector<Status> _bad;                   ///< of files that are no sources, or no longer
    mutable std::mutex _unreadableMutex;        ///< guards what follows while points are read
    std::map<size_t, Status> _unreadable;       ///< by place in `_sources`
    std::vector<std::vector<PointBatch>> _kept; ///< by part, whole records; empty where it was not kept
    uint64_t _pointCount = 0;
    std::vector<std::string> _notes;
};

} // namespace VelBrx
