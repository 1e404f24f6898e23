#include "store/las/PointSample.h"

#include "store/io/FileReader.h"
#include "store/io/ParallelFor.h"

#include <chrono>
#include <cstring>
#include <numeric>

namespace VelBrx {

namespace {

using Clock = std::chrono::steady_clock;

/// Records that are in memory.
class HeldPoints final : public PointSource
{
public:
    HeldPoints(LasFile file, std::vector<uint8_t> records)
        : PointSource(std::move(file)), _records(std::move(records))
    {
    }

    uint64_t partCount() const override { return (file().pointCount + partPoints() - 1) / partPoints(); }

    Status readPart(uint64_t index, const Use& use, RecordFields, uint64_t most) const override
    {
        PointBatch batch;
        batch.first = index * partPoints();
        const uint64_t count = std::min({partPoints(), file().pointCount - batch.first, most});
        const uint8_t* const begin = _records.data() + batch.first * file().recordLength;
        batch.records.assign(begin, begin + count * file().recordLength);
        return use(batch);
    }

private:
    uint64_t partPoints() const { return batchPoints(file().recordLength); }

    const std::vector<uint8_t> _records;
};

/// Steps through `count` things so that those of any number of first steps are spread evenly over all.
class SpreadOrder
{
public:
    explicit SpreadOrder(size_t count) : _count(count)
    {
        constexpr double kGoldenRatio = 0.6180339887498949;
        _step = std::max<size_t>(1, static_cast<size_t>(kGoldenRatio * static_cast<double>(count)));
        while (std::gcd(_step, count) != 1)
            ++_step;
    }

    size_t operator[](size_t i) const { return i * _step % _count; }

private:
    const size_t _count;
    size_t _step;
};

/// Some consecutive records of a file, and of these the ones that are kept.
struct Stretch
{
    uint64_t first = 0; ///< number in the file; unused where `part` tells
    uint64_t part = 0;  ///< of a compressed file: its first records are read
    uint64_t count = 0; ///< records that are read
    uint64_t kept = 0;  ///< of them, at equal distances
    std::vector<uint8_t> records = {};
    uint64_t taken = 0; ///< records that `records` holds

    /// Keeps what is wanted of records that follow each other; `done`: how many were given before.
    void take(const std::vector<uint8_t>& read, uint64_t done, size_t length)
    {
        records.resize(kept * length);
        const uint64_t end = done + read.size() / length;
        for (; taken < kept && taken * count / kept < end; ++taken)
            std::memcpy(&records[taken * length], &read[(taken * count / kept - done) * length], length);
    }
};

uint64_t partOf(uint64_t points, double share)
{
    return static_cast<uint64_t>(share * static_cast<double>(points));
}

/// Of the points from `first` on, so that the parts of a whole file are as many together as its part.
uint64_t keptOf(uint64_t first, uint64_t points, double share)
{
    return partOf(first + points, share) - partOf(first, share);
}

/// Of uncompressed records: short stretches at many places, which disks give as quickly as single records.
std::vector<Stretch> stretchesOfRecords(const LasFile& file, double share)
{
    constexpr uint64_t kMostPlaces = 1 << 14;
    constexpr uint64_t kBytes = 1 << 14;
    const uint64_t usual = std::max<uint64_t>(kBytes / file.recordLength, 1);
    const uint64_t places = std::clamp<uint64_t>(file.pointCount / usual, 1, kMostPlaces);
    std::vector<Stretch> stretches(places);
    for (uint64_t i = 0; i < places; ++i) {
        Stretch& stretch = stretches[i];
        stretch.first = file.pointCount * i / places;
        const uint64_t points = file.pointCount * (i + 1) / places - stretch.first;
        stretch.kept = keptOf(stretch.first, points, share);
        stretch.count = std::max(stretch.kept, std::min(usual, points));
    }
    return stretches;
}

/// Of chunks: the first points of each, as only these can be had without the others. Fails where that would
/// not be even.
Status stretchesOfChunks(const LasFile& file, double share, double decoded, std::vector<Stretch>& stretches)
{
    constexpr size_t kFew = 64;
    const std::vector<LazChunk>& chunks = file.laz->chunks.chunks;
    const double readShare = std::clamp(decoded / static_cast<double>(file.pointCount), share, 1.0);
    if (chunks.size() < kFew && readShare < 1)
        return Status::failure(file.path + ": its points are compressed in " + std::to_string(chunks.size()) +
                               " pieces, too few for a sample in short time");
    stretches.resize(chunks.size());
    for (size_t i = 0; i < chunks.size(); ++i) {
        Stretch& stretch = stretches[i];
        stretch.part = i;
        stretch.kept = keptOf(chunks[i].firstPoint, chunks[i].pointCount, share);
        stretch.count = std::max(stretch.kept, partOf(chunks[i].pointCount, readShare));
    }
    return {};
}

Status readStretch(const PointSource& source, const FileReader& input, Stretch& stretch)
{
    const LasFile& file = source.file();
    if (stretch.kept == 0) return {};
    if (file.laz) {
        uint64_t done = 0;
        const auto use = [&](const PointBatch& batch) {
            stretch.take(batch.records, done, file.recordLength);
            done += batch.records.size() / file.recordLength;
            return Status();
        };
        return source.readPart(stretch.part, use, RecordFields::All, stretch.count);
    }
    std::vector<uint8_t> read(stretch.count * file.recordLength);
    const uint64_t position = file.pointDataStart + stretch.first * file.recordLength;
    if (!input.read(static_cast<int64_t>(position), read.data(), read.size()))
        return Status::failure(file.path + ": its points cannot be read");
    stretch.take(read, 0, file.recordLength);
    return {};
}

/// Those that there is time for.
Status readStretches(const PointSource& source, const PointSampling& how, std::vector<Stretch>& stretches)
{
    static const std::atomic<bool> never{false};
    FileReader input;
    if (Status status = input.open(source.file().path); !status) return status.of(source.file().path);
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                     std::chrono::duration<double>(how.seconds));
    const SpreadOrder order(stretches.size());
    return parallelFor(how.threads, stretches.size(), how.cancel ? *how.cancel : never,
                       [&](size_t i) -> Status {
                           if (Clock::now() > end) return {};
                           return readStretch(source, input, stretches[order[i]]);
                       });
}

/// The head of a file that has these points alone.
LasFile withoutRest(const LasFile& file, uint64_t points)
{
    LasFile head = file;
    head.laz.reset();
    head.evlrs.clear();
    head.notes.clear();
    head.pointCount = points;
    head.fileSize = head.pointDataEnd();
    return head;
}

} // namespace

Status readPointSample(const PointSource& source, const PointSampling& how,
                       std::unique_ptr<PointSource>& sample)
{
    constexpr double kDecodedPerSecond = 2.5e6; // points, by a thread of a usual machine
    const LasFile& file = source.file();
    if (file.pointCount == 0) return Status::failure(file.path + ": has no points");
    const double share =
        std::min(1.0, static_cast<double>(how.points) / static_cast<double>(file.pointCount));
    std::vector<Stretch> stretches;
    if (!file.laz)
        stretches = stretchesOfRecords(file, share);
    else if (Status status =
                 stretchesOfChunks(file, share, kDecodedPerSecond * how.seconds * how.threads, stretches);
             !status)
        return status;
    if (Status status = readStretches(source, how, stretches); !status) return status;
    std::vector<uint8_t> records;
    for (const Stretch& stretch : stretches)
        records.insert(records.end(), stretch.records.begin(), stretch.records.end());
    const uint64_t points = records.size() / file.recordLength;
    if (points == 0) return Status::failure(file.path + ": none of its points were read in time");
    sample = std::make_unique<HeldPoints>(withoutRest(file, points), std::move(records));
    return {};
}

} // namespace VelBrx
