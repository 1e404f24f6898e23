#pragma once

#include <VelBrx/Builder.h>

#include "store/build/BuildRun.h"
#include "store/build/StoreGrid.h"
#include "store/las/PointSource.h"
#include "store/las/RecordFormat.h"

#include <memory>
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

/// The input files of a build in their order, and what a first reading of all their points tells.
class SourceSet
{
public:
    /// Opens the files and reads their heads.
    Status open(const std::vector<std::string>& paths);

    /// Reads all points once. Afterwards `notes` tells what of the headers is wrong.
    Status scan(BuildRun& run);

    const std::vector<BuildSource>& sources() const { return _sources; }
    uint64_t pointCount() const { return _pointCount; }
    std::vector<const LasFile*> files() const;
    std::vector<SourceExtent> extents() const;

    /// Whether colours are 8-bit values in 16-bit fields: none above 255 and not all zero.
    bool hasNarrowColors() const;

    /// A part of one source.
    struct Part
    {
        size_t source;
        uint64_t index;
    };
    /// All parts of all sources in order.
    std::vector<Part> parts() const;

    const std::vector<std::string>& notes() const { return _notes; }

private:
    void noteHeader(const BuildSource& source);

    std::vector<BuildSource> _sources;
    uint64_t _pointCount = 0;
    std::vector<std::string> _notes;
};

} // namespace VelBrx
