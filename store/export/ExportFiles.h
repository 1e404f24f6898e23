#pragma once

#include "store/export/ExportOutput.h"
#include "store/export/ExportPlan.h"
#include "store/export/RecordEncoder.h"
#include "store/export/SourceOrder.h"

#include <memory>
#include <vector>

namespace VelBrx {

/// The files of an export with their heads, and how the points of each source are encoded in them.
class ExportFiles
{
public:
    /// The plan must live as long.
    explicit ExportFiles(const ExportPlan& plan) : _plan(plan) {}

    /// Makes heads and encoders, and checks that the points fit into them and into the disk. Nothing is
    /// written yet. Adds to the report what a merged file leaves out.
    Status make(const std::vector<SourceTally>& tallies, ExportReport& report);

    size_t count() const { return _outputs.size(); }
    ExportOutput& output(size_t index) const { return *_outputs[index]; }
    const RecordEncoder& encoder(size_t source) const { return _encoders[source]; }

    /// The ordinal behind the last point of a source, and of an output.
    uint64_t endOfSource(size_t source) const { return _sourceEnds[source]; }
    uint64_t endOfOutput(size_t output) const
    {
        return _plan.isMerged() ? _sourceEnds.back() : _sourceEnds[output];
    }

    /// The source that a point is from.
    size_t sourceOf(uint64_t ordinal) const;

    /// Gives all files their names. Each was finished.
    Status commit(ExportReport& report);

private:
    Status checkClasses(const std::vector<SourceTally>& tallies) const;
    Status makeOfSource(size_t source, uint64_t points);
    Status makeMerged(uint64_t points, ExportReport& report);
    Status compress(uint8_t pointFormat);
    Status checkSpace() const;

    const ExportPlan& _plan;
    std::vector<uint64_t> _sourceEnds;
    std::vector<RecordEncoder> _encoders; ///< by source
    std::vector<std::unique_ptr<ExportOutput>> _outputs;
};

} // namespace VelBrx
