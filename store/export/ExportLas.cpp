#include <VelBrx/ExportLas.h>

#include "store/SourceRecords.h"
#include "store/build/DiskFile.h"
#include "store/export/ExportCopc.h"
#include "store/export/ExportOutput.h"
#include "store/export/RecordEncoder.h"
#include "store/export/SourceOrder.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

namespace VelBrx {

namespace {

constexpr size_t kMostOpenFiles = 64;
constexpr uint64_t kBlockPoints = 1 << 16;
constexpr uint64_t kBlockBytes = 4 << 20;
constexpr uint8_t kLastLegacyFormat = 5;
constexpr size_t kFormatByte = 104;
constexpr uint8_t kCompressionBits = 0xC0;

bool isCompressed(const OriginSource& source)
{
    return source.head.size() > kFormatByte && (source.head[kFormatByte] & kCompressionBits);
}

/// A name for the file of a source that no earlier one has taken; a name from a store is not to be trusted.
std::string fileNameOf(const OriginSource& source, std::set<std::string>& taken)
{
    std::string name = source.name.substr(source.name.find_last_of('/') + 1);
    name.erase(std::remove(name.begin(), name.end(), '\0'), name.end());
    if (isCopcName(name)) name.erase(name.size() - std::strlen(".copc.laz"), std::strlen(".copc"));
    if (name.empty() || name == "." || name == "..") name = "source.las";
    const size_t dot = name.find_last_of('.');
    const std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    const std::string extension = name.substr(stem.size());
    for (unsigned number = 2; !taken.insert(name).second; ++number)
        name = stem + "_" + std::to_string(number) + extension;
    return name;
}

/// A folder that is made where there is none, and taken away again when nothing stands in it at the end.
class OutputFolder
{
public:
    ~OutputFolder()
    {
        if (!_made.empty()) rmdir(_made.c_str()); // fails where files stand in it, as it should
    }

    Status prepare(const std::string& path)
    {
        struct stat status
        {
        };
        if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return {};
        if (mkdir(path.c_str(), 0777) != 0)
            return Status::failure(path + ": is no folder and none can be made there; name a folder for the "
                                          "files of the sources");
        _made = path;
        return {};
    }

private:
    std::string _made;
};

/// Consecutive points of one source that are written together.
struct ExportBlock
{
    size_t output;
    size_t source;
    uint64_t first;     ///< ordinal
    uint64_t count;     ///< points in the store
    uint64_t place = 0; ///< number of its first point in the output
};

class Exporter
{
public:
    Exporter(const ExportOptions& options, ExportReport& report)
        : _options(options), _report(report), _run(options.threads, options.progress, options.cancel)
    {
    }

    Status run()
    {
        if (Status status = readSources(); !status) return ofStore(status);
        if (Status status = planFiles(); !status) return status;
        SourceOrder order(_store, _head, _records.origin, orderMemory(), _run.threads());
        const bool hasWindows = order.windowCount() > 1;
        _run.setTotal(_head.header.pointCount, hasWindows ? 3 : 2);
        _run.begin("reading");
        if (Status status = OutputFile::checkSpace(_options.output, order.temporarySize()); !status)
            return status;
        if (Status status = order.distribute(folder(), _run); !status) return ofStore(status);
        if (Status status = checkClasses(order.tallies()); !status) return status;
        if (Status status = planOutputs(order.tallies()); !status) return ofStore(status);
        if (Status status = checkSpace(); !status) return status;
        _run.begin("writing");
        for (size_t window = 0; window < order.windowCount(); ++window) {
            if (Status status = order.load(window, _run); !status) return ofStore(status);
            if (Status status = writeWindow(order, window); !status) return status;
        }
        return commit();
    }

private:
    Status ofStore(const Status& status) const
    {
        return Status::failure(_options.store + ": " + status.message());
    }

    const std::vector<OriginSource>& sources() const { return _records.origin.sources; }
    bool isMerged() const
    {
        return _options.form == ExportForm::Merged ||
               (_options.form == ExportForm::Automatic && sources().size() > 1);
    }
    /// Whether the points of a source are compressed in the file that they go to.
    bool isLaz(const OriginSource& source) const
    {
        return isSplit() ? isCompressed(source) : isLazName(_options.output);
    }
    /// What putting points in order may use of the memory: not what compressing them takes.
    uint64_t orderMemory() const
    {
        const bool compresses = std::any_of(sources().begin(), sources().end(),
                                            [this](const OriginSource& source) { return isLaz(source); });
        const uint64_t compressing = compresses ? _run.threads() * LazPointWriter::kThreadMemory : 0;
        return _options.memory - std::min(_options.memory / 2, compressing);
    }
    bool isSplit() const { return _options.form == ExportForm::Split; }
    std::string folder() const { return isSplit() ? _options.output : folderOf(_options.output); }

    Status readSources()
    {
        StoreIndex index;
        if (Status status = readStore(_options.store, _store, _head, index); !status) return status;
        if (Status status = readSourceRecords(_store, _head, _records); !status) return status;
        return {};
    }

    /// Decides on the paths of the files and whether they may be made.
    Status planFiles()
    {
        if (isSplit()) {
            if (Status status = _folder.prepare(_options.output); !status) return status;
            std::set<std::string> taken;
            for (const OriginSource& source : sources())
                _paths.push_back(_options.output + "/" + fileNameOf(source, taken));
        } else
            _paths.push_back(_options.output);
        for (const std::string& path : _paths)
            if (Status status = checkOutput(_options, path); !status) return status;
        return {};
    }

    /// Classes that a source's records have no room for.
    Status checkClasses(const std::vector<SourceTally>& tallies) const
    {
        if (isMerged()) return {};
        for (size_t i = 0; i < sources().size(); ++i) {
            const uint64_t wide = _options.visibleOnly ? tallies[i].visibleWideClass : tallies[i].wideClass;
            if (wide > 0 && sources()[i].pointFormat <= kLastLegacyFormat)
                return Status::failure(_options.store + ": " + std::to_string(wide) + " points of " +
                                       sources()[i].name +
                                       " have a class above 31, for which its point format " +
                                       std::to_string(sources()[i].pointFormat) +
                                       " has no room; change them or export with --las14");
        }
        return {};
    }

    uint64_t pointsOf(size_t source, const std::vector<SourceTally>& tallies) const
    {
        return sources()[source].pointCount - (_options.visibleOnly ? tallies[source].hidden : 0);
    }

    Status planOutputs(const std::vector<SourceTally>& tallies)
    {
        uint64_t points = 0;
        for (size_t i = 0; i < sources().size(); ++i) {
            points += pointsOf(i, tallies);
            _sourceEnds.push_back((i == 0 ? 0 : _sourceEnds.back()) + sources()[i].pointCount);
            if (_options.visibleOnly) _report.hiddenLeftOut += tallies[i].hidden;
        }
        if (isMerged()) return planMerged(points);
        for (size_t i = 0; i < sources().size(); ++i)
            if (Status status = planSource(i, pointsOf(i, tallies)); !status) return status;
        return {};
    }

    Status planSource(size_t i, uint64_t points)
    {
        const OriginSource& source = sources()[i];
        LasHead head;
        if (Status status = makeSourceHead(_store, _head.origin.start, source, points, head); !status)
            return status;
        // A source that was cut off is given back as it was, except where compression is in play.
        const bool recounts = points != source.pointCount ||
                              ((isCompressed(source) || isLaz(source)) && !isCountRight(head, points));
        _outputs.push_back(
            std::make_unique<ExportOutput>(_paths[i], std::move(head), source.recordLength, points));
        if (recounts) _outputs.back()->recount();
        _encoders.emplace_back(source);
        return isLaz(source) ? compress(source.pointFormat) : Status();
    }

    /// Compresses the points of the last output.
    Status compress(uint8_t pointFormat)
    {
        if (_outputs.back()->compress(pointFormat)) return {};
        return Status::failure(_outputs.back()->path() + ": its header has no room for a record about "
                                                         "compression; choose a name that ends in .las");
    }

    Status planMerged(uint64_t points)
    {
        const MergedFormat format = mergedFormat(sources());
        for (const std::string& note : format.notes)
            _report.notes.push_back(_options.output + ": " + note);
        LasHead head;
        if (Status status = makeMergedHead(_store, _head, format, head); !status) return status;
        const auto length = static_cast<uint16_t>(coreRecordLength(format.pointFormat) + format.extraLength);
        for (const OriginSource& source : sources())
            _encoders.emplace_back(source, RecordFormat(format.pointFormat, length));
        _outputs.push_back(std::make_unique<ExportOutput>(_paths[0], std::move(head), length, points));
        _outputs.back()->recount();
        return isLazName(_options.output) ? compress(format.pointFormat) : Status();
    }

    Status checkSpace() const
    {
        uint64_t size = 0;
        for (const auto& output : _outputs)
            size += output->size();
        return OutputFile::checkSpace(isSplit() ? _options.output + "/" : _options.output, size);
    }

    size_t outputOf(size_t source) const { return isMerged() ? 0 : source; }

    /// Ordinal behind the last point of an output.
    uint64_t endOf(size_t output) const { return isMerged() ? _sourceEnds.back() : _sourceEnds[output]; }

    /// Writes the window's points, a few files at a time; files whose last point comes are finished.
    Status writeWindow(const SourceOrder& order, size_t window)
    {
        uint64_t first = order.windowFirst(window);
        const uint64_t end = order.windowFirst(window + 1);
        const bool isLast = window + 1 == order.windowCount();
        while (_nextOutput < _outputs.size() && (first < end || isLast)) {
            const size_t last = std::min(_nextOutput + kMostOpenFiles, _outputs.size());
            const uint64_t groupEnd = std::min(end, endOf(last - 1));
            if (Status status = writeRange(order, first, groupEnd); !status) return status;
            for (; _nextOutput < last && endOf(_nextOutput) <= groupEnd; ++_nextOutput)
                if (Status status = finish(*_outputs[_nextOutput]); !status) return status;
            first = groupEnd;
        }
        return {};
    }

    Status finish(ExportOutput& output)
    {
        if (Status status = output.open(_options.overwrite); !status) return status;
        return output.finish(_store, _run);
    }

    Status writeRange(const SourceOrder& order, uint64_t first, uint64_t end)
    {
        std::vector<ExportBlock> blocks = blocksOf(first, end);
        for (const ExportBlock& block : blocks)
            if (Status status = _outputs[block.output]->open(_options.overwrite); !status) return status;
        if (Status status = placeBlocks(order, blocks); !status) return status;
        return _run.forEach(blocks.size(), [&](size_t i) -> Status {
            Status status = writeBlock(order, blocks[i]);
            if (status) _run.done(blocks[i].count);
            return status;
        });
    }

    std::vector<ExportBlock> blocksOf(uint64_t first, uint64_t end) const
    {
        std::vector<ExportBlock> blocks;
        auto source = static_cast<size_t>(std::upper_bound(_sourceEnds.begin(), _sourceEnds.end(), first) -
                                          _sourceEnds.begin());
        for (; first < end; ++source) {
            const uint64_t pointSize = sources()[source].recordLength +
                                       _records.flags.sources[source].restLength + LasLayout::kPointSize;
            const uint64_t most = std::clamp<uint64_t>(kBlockBytes / pointSize, 1, kBlockPoints);
            const uint64_t sourceEnd = std::min(end, _sourceEnds[source]);
            for (; first < sourceEnd; first += std::min(most, sourceEnd - first))
                blocks.push_back({outputOf(source), source, first, std::min(most, sourceEnd - first)});
        }
        return blocks;
    }

    /// Gives each block its place in its output.
    Status placeBlocks(const SourceOrder& order, std::vector<ExportBlock>& blocks)
    {
        std::vector<uint64_t> counts(blocks.size());
        Status status = _run.forEach(blocks.size(), [&](size_t i) -> Status {
            counts[i] = blocks[i].count;
            for (uint64_t k = 0; _options.visibleOnly && k < blocks[i].count; ++k)
                counts[i] -= isHidden(order.record(blocks[i].first + k));
            return {};
        });
        for (size_t i = 0; i < blocks.size(); ++i) {
            if (blocks[i].output != _placedOutput) _placed = 0;
            _placedOutput = blocks[i].output;
            blocks[i].place = _placed;
            _placed += counts[i];
        }
        return status;
    }

    static bool isHidden(const uint8_t* record) { return record[LasLayout::kFlags] & LasLayout::kHiddenBits; }

    Status writeBlock(const SourceOrder& order, const ExportBlock& block)
    {
        std::vector<uint8_t> flags(block.count);
        std::vector<uint8_t> classes(block.count);
        std::vector<uint8_t> rests(block.count * _records.flags.sources[block.source].restLength);
        if (!readKept(block, flags, classes, rests))
            return ofStore(Status::failure("its source flags cannot be read"));
        uint64_t changed = 0;
        for (uint64_t i = 0; i < block.count; ++i) {
            const uint8_t* const record = order.record(block.first + i);
            const bool hidden = isHidden(record);
            const auto now = static_cast<uint8_t>((flags[i] & ~kWithheld) | (hidden ? kWithheld : 0));
            const bool isChanged = now != flags[i] || record[LasLayout::kClass] != classes[i];
            changed += isChanged && !(hidden && _options.visibleOnly);
            flags[i] = now;
        }
        const RecordEncoder& encoder = _encoders[block.source];
        std::vector<uint8_t> bytes;
        if (!encoder.encode({block.count, order.record(block.first), flags.data(), rests.data()},
                            _options.visibleOnly, bytes))
            return ofStore(Status::failure("has points off the coordinates of " +
                                           sources()[block.source].name +
                                           "; restore the store from a copy or build it anew"));
        return _outputs[block.output]->write(block.place, bytes, encoder.format(), changed);
    }

    /// Reads what the flags record keeps of the block's points; flags become one byte a point.
    bool readKept(const ExportBlock& block, std::vector<uint8_t>& flags, std::vector<uint8_t>& classes,
                  std::vector<uint8_t>& rests) const
    {
        const FlagsRecord& kept = _records.flags;
        const auto at = [&](uint64_t position) { return _head.flags.start + static_cast<int64_t>(position); };
        std::vector<uint8_t> packed((block.first + block.count + 1) / 2 - block.first / 2);
        const uint64_t index = block.first - (_sourceEnds[block.source] - sources()[block.source].pointCount);
        const FlagsSource& source = kept.sources[block.source];
        if (!_store.read(at(kept.flagsStart + block.first / 2), packed.data(), packed.size()) ||
            !_store.read(at(kept.classesStart + block.first), classes.data(), classes.size()) ||
            !_store.read(at(source.restStart + index * source.restLength), rests.data(), rests.size()))
            return false;
        for (uint64_t i = 0; i < block.count; ++i) {
            const uint64_t ordinal = block.first + i;
            flags[i] = packed[ordinal / 2 - block.first / 2] >> (ordinal % 2 ? 4 : 0) & 0x0F;
        }
        return true;
    }

    Status commit()
    {
        if (Status status = _run.step(0); !status) return status;
        for (const auto& output : _outputs) {
            if (Status status = output->commit(); !status) return status;
            _report.files.push_back({output->path(), output->points(), output->changed()});
        }
        _run.begin("done");
        return {};
    }

    const ExportOptions& _options;
    ExportReport& _report;
    BuildRun _run;
    OutputFolder _folder;
    FileReader _store;
    StoreHead _head;
    SourceRecords _records;
    std::vector<uint64_t> _sourceEnds; ///< ordinals behind the sources' last points
    std::vector<std::string> _paths;
    std::vector<RecordEncoder> _encoders; ///< by source
    std::vector<std::unique_ptr<ExportOutput>> _outputs;
    size_t _nextOutput = 0;   ///< the first that is not finished
    size_t _placedOutput = 0; ///< where points were placed last,
    uint64_t _placed = 0;     ///< and how many of its points have a place
};

} // namespace

Status exportLas(const ExportOptions& options, ExportReport& report)
{
    report = ExportReport();
    try {
        const bool isCopc = options.form != ExportForm::Split && isCopcName(options.output);
        const Status status = isCopc ? exportCopc(options, report) : Exporter(options, report).run();
        if (!status && options.cancel && *options.cancel)
            return Status::failure(options.output + ": cancelled; nothing was written");
        return status;
    } catch (const std::bad_alloc&) {
        return Status::failure(options.output + ": there is not enough memory; allow the export less of it");
    }
}

} // namespace VelBrx
