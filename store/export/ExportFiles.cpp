#include "store/export/ExportFiles.h"

#include <algorithm>
#include <utility>

namespace VelBrx {

namespace {

constexpr uint8_t kLastLegacyFormat = 5;

} // namespace

Status ExportFiles::make(const std::vector<SourceTally>& tallies, ExportReport& report)
{
    if (Status status = checkClasses(tallies); !status) return status;
    const std::vector<OriginSource>& sources = _plan.store().sources();
    uint64_t all = 0;
    for (size_t i = 0; i < sources.size(); ++i) {
        all += tallies[i].taken;
        _sourceEnds.push_back((i == 0 ? 0 : _sourceEnds.back()) + sources[i].pointCount);
        report.hiddenLeftOut += tallies[i].leftOutAsHidden;
    }
    report.leftOut = _sourceEnds.back() - all;
    Status status = _plan.isMerged() ? makeMerged(all, report) : Status();
    for (size_t i = 0; status && !_plan.isMerged() && i < sources.size(); ++i)
        status = makeOfSource(i, tallies[i].taken);
    return status ? checkSpace() : status;
}

/// Fails where a class is too large for the point format of its source.
Status ExportFiles::checkClasses(const std::vector<SourceTally>& tallies) const
{
    if (_plan.isMerged()) return {};
    const std::vector<OriginSource>& sources = _plan.store().sources();
    for (size_t i = 0; i < sources.size(); ++i) {
        const uint64_t wide = tallies[i].wideClass;
        if (wide > 0 && sources[i].pointFormat <= kLastLegacyFormat)
            return _plan.store().failure(std::to_string(wide) + " points of " + sources[i].name +
                                         " have a class above 31, for which its point format " +
                                         std::to_string(sources[i].pointFormat) +
                                         " has no room; change them or export with --las14");
    }
    return {};
}

Status ExportFiles::makeOfSource(size_t index, uint64_t points)
{
    const ExportedStore& store = _plan.store();
    const OriginSource& source = store.sources()[index];
    LasHead head;
    if (Status status = makeSourceHead(store.file, store.head.origin.start, source, points, head); !status)
        return status.of(store.path);
    // A source that was cut off is given back as it was, except where compression is in play.
    const bool isEncodedAnew = isCompressedSource(source) || _plan.isCompressed(source);
    const bool recounts = points != source.pointCount || (isEncodedAnew && !isCountRight(head, points));
    _outputs.push_back(
        std::make_unique<ExportOutput>(_plan.paths()[index], std::move(head), source.recordLength, points));
    if (recounts) _outputs.back()->recount();
    _encoders.emplace_back(source);
    return _plan.isCompressed(source) ? compress(source.pointFormat) : Status();
}

Status ExportFiles::makeMerged(uint64_t points, ExportReport& report)
{
    const ExportedStore& store = _plan.store();
    const std::string& path = _plan.paths().front();
    const MergedFormat format = mergedFormat(store.sources());
    for (const std::string& note : format.notes)
        report.notes.push_back(path + ": " + note);
    LasHead head;
    if (Status status = makeMergedHead(store.file, store.head, format, head); !status)
        return status.of(store.path);
    const auto length = static_cast<uint16_t>(coreRecordLength(format.pointFormat) + format.extraLength);
    for (const OriginSource& source : store.sources())
        _encoders.emplace_back(source, RecordFormat(format.pointFormat, length));
    _outputs.push_back(std::make_unique<ExportOutput>(path, std::move(head), length, points));
    _outputs.back()->recount();
    return isLazName(path) ? compress(format.pointFormat) : Status();
}

/// Compresses the points of the last output.
Status ExportFiles::compress(uint8_t pointFormat)
{
    if (_outputs.back()->compress(pointFormat)) return {};
    return Status::failure(_outputs.back()->path() + ": its header has no room for a record about "
                                                     "compression; choose a name that ends in .las");
}

Status ExportFiles::checkSpace() const
{
    uint64_t size = 0;
    for (const auto& output : _outputs)
        size += output->size();
    const std::string& path = _plan.options().output;
    return OutputFile::checkSpace(_plan.isSplit() ? path + "/" : path, size);
}

size_t ExportFiles::sourceOf(uint64_t ordinal) const
{
    return static_cast<size_t>(std::upper_bound(_sourceEnds.begin(), _sourceEnds.end(), ordinal) -
                               _sourceEnds.begin());
}

Status ExportFiles::commit(ExportReport& report)
{
    report.files.reserve(_outputs.size()); // nothing may be thrown once a file has its name
    for (const auto& output : _outputs) {
        ExportedFile file = {output->path(), output->points(), output->changed()};
        if (Status status = output->commit(); !status) return status;
        report.files.push_back(std::move(file));
    }
    return {};
}

} // namespace VelBrx
