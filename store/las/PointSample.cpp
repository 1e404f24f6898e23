#include "store/las/PointSample.h"

#include "store/io/FileReader.h"
#include "store/io/ParallelFor.h"

#include <chrono>
#include <cstring>
#include <functional>
#include <numeric>
#include <utility>

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
};

/// Keeps some of records that come in batches.
class Thinning
{
public:
    /// `kept` of `count` records of `length` bytes.
    Thinning(uint64_t count, uint64_t kept, size_t length)
        : records(kept * length), _count(count), _kept(kept), _length(length)
    {
    }

    void take(const std::vector<uint8_t>& batch)
    {
        const uint64_t end = _done + batch.size() / _length;
        for (uint64_t wanted = 0; _taken < _kept && (wanted = _taken * _count / _kept) < end; ++_taken)
            std::memcpy(&records[_taken * _length], &batch[(wanted - _done) * _length], _length);
        _done = end;
    }

    std::vector<uint8_t> records;

private:
    const uint64_t _count;
    const uint64_t _kept;
    const size_t _length;
    uint64_t _done = 0;
    uint64_t _taken = 0;
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

/// `count` records, of which `kept` stay.
Status readStretch(const PointSource& source, const FileReader& input, uint64_t count, uint64_t kept,
                   Stretch& stretch)
{
    const LasFile& file = source.file();
    if (kept == 0) return {};
    Thinning thinning(count, kept, file.recordLength);
    if (file.laz) {
        const auto use = [&](const PointBatch& batch) {
            thinning.take(batch.records);
            return Status();
        };
        if (Status status = source.readPart(stretch.part, use, RecordFields::All, count); !status)
            return status;
    } else {
        std::vector<uint8_t> read(count * file.recordLength);
        const uint64_t position = file.pointDataStart + stretch.first * file.recordLength;
        if (!input.read(static_cast<int64_t>(position), read.data(), read.size()))
            return Status::failure(file.path + ": its points cannot be read");
        thinning.take(read);
    }
    stretch.records = std::move(thinning.records);
    return {};
}

/// How a round reads each stretch: how many records, and how many of them are kept.
using Share = std::function<std::pair<uint64_t, uint64_t>(const Stretch&)>;

/// Reads those that there is time for, evenly spread.
Status readStretches(const PointSource& source, const PointSampling& how, Clock::time_point end,
                     const Share& share, std::vector<Stretch>& stretches)
{
    static const std::atomic<bool> never{false};
    FileReader input;
    if (Status status = input.open(source.file().path); !status) return status.of(source.file().path);
    const SpreadOrder order(stretches.size());
    return parallelFor(how.threads, stretches.size(), how.cancel ? *how.cancel : never,
                       [&](size_t i) -> Status {
                           if (Clock::now() > end) return {};
                           Stretch& stretch = stretches[order[i]];
                           const auto [count, kept] = share(stretch);
                           return readStretch(source, input, count, kept, stretch);
                       });
}

/// Of chunks a few points first, so that none is missing on a slow machine, then all that are wanted, then
/// these from a longer part of each chunk. A round takes the place of the one before.
Status readInRounds(const PointSource& source, const PointSampling& how, std::vector<Stretch>& stretches)
{
    constexpr uint64_t kFew = 8; // times as many are wanted
    const auto after = [start = Clock::now()](double seconds) {
        return start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    };
    const auto read = [&](double seconds, const Share& share) {
        return readStretches(source, how, after(seconds), share, stretches);
    };
    const Share whole = [](const Stretch& stretch) { return std::pair(stretch.count, stretch.kept); };
    if (!source.file().laz) return read(how.seconds, whole);
    const auto first = [](uint64_t points) { return std::pair(points, points); };
    Status status = read(2 * how.seconds,
                         [&](const Stretch& stretch) { return first((stretch.kept + kFew - 1) / kFew); });
    if (status) status = read(how.seconds, [&](const Stretch& stretch) { return first(stretch.kept); });
    if (status) status = read(how.seconds, whole);
    return status;
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
    if (Status status = readInRounds(source, how, stretches); !status) return status;
    std::vector<uint8_t> records;
    for (const Stretch& stretch : stretches)
        records.insert(records.end(), stretch.records.begin(), stretch.records.end());
    const uint64_t points = records.size() / file.recordLength;
    if (points == 0) return Status::failure(file.path + ": none of its points were read in time");
    sample = std::make_unique<HeldPoints>(withoutRest(file, points), std::move(records));
    return {};
}

} // namespace VelBrx
