#include <VelBrx/SampleSurvey.h>

#include "store/io/ByteIo.h"
#include "store/io/OutputFile.h"
#include "store/io/ParallelRun.h"
#include "store/las/LasFile.h"
#include "store/las/LasLayout.h"
#include "store/las/VlrHeader.h"
#include "store/las/laz/LazPointWriter.h"
#include "store/sample/FlightPlan.h"
#include "store/sample/Scanner.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace VelBrx {

using namespace LasLayout;

namespace Sample {

namespace {

constexpr double kScale = 0.001;
constexpr double kAngleUnit = 0.006;
constexpr double kOrigin[3] = {562000, 5934000, 0}; ///< of the landscape, and the file's offset
constexpr double kPointsPerSquareMetre = 14;
constexpr double kLeastSize = 300;
constexpr double kLargestSize = 2000;
constexpr uint64_t kPulsesPerChunk = 1 << 15;

constexpr char kWkt[] =
    "PROJCS[\"ETRS89 / UTM zone 32N\",GEOGCS[\"ETRS89\",DATUM[\"European_Terrestrial_Reference_System_1989\","
    "SPHEROID[\"GRS 1980\",6378137,298.257222101,AUTHORITY[\"EPSG\",\"7019\"]],AUTHORITY[\"EPSG\",\"6258\"]],"
    "PRIMEM[\"Greenwich\",0,AUTHORITY[\"EPSG\",\"8901\"]],UNIT[\"degree\",0.0174532925199433,"
    "AUTHORITY[\"EPSG\",\"9122\"]],AUTHORITY[\"EPSG\",\"4258\"]],PROJECTION[\"Transverse_Mercator\"],"
    "PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",9],PARAMETER[\"scale_factor\",0.9996]"
    ","
    "PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0],UNIT[\"metre\",1,"
    "AUTHORITY[\"EPSG\",\"9001\"]],AXIS[\"Easting\",EAST],AXIS[\"Northing\",NORTH],AUTHORITY[\"EPSG\","
    "\"25832\"]]";

double sizeFor(uint64_t points)
{
    return std::floor(
        std::clamp(std::sqrt(static_cast<double>(points) / kPointsPerSquareMetre), kLeastSize, kLargestSize));
}

/// Some scan lines of one flight line, one task's work.
struct Chunk
{
    FlightLine line;
    uint64_t firstScanLine;
    uint64_t endScanLine;
    uint64_t seed;
};

uint16_t colorTo16Bit(double value)
{
    return static_cast<uint16_t>(std::lround(std::clamp(value, 0.0, 1.0) * 65535));
}

/// The records of one pulse.
void appendRecords(const Pulse& pulse, const Echoes& echoes, uint16_t sourceId, std::vector<uint8_t>& records)
{
    for (size_t i = 0; i < echoes.count; ++i) {
        const Echo& echo = echoes.echo[i];
        records.resize(records.size() + kPointSize, 0);
        uint8_t* record = records.data() + records.size() - kPointSize;
        const double position[3] = {echo.position.x, echo.position.y, echo.position.z};
        for (size_t axis = 0; axis < 3; ++axis)
            storeLe(record + kX + 4 * axis,
                    static_cast<int32_t>(std::lround(position[axis] / Sample::kScale)));
        storeLe(record + kIntensity, echo.intensity);
        record[kReturns] = static_cast<uint8_t>((i + 1) | echoes.count << 4);
        record[kFlags] = static_cast<uint8_t>(0x40 | (pulse.isAtEdge ? 0x80 : 0));
        record[kClass] = echo.pointClass;
        storeLe(record + kScanAngle, static_cast<int16_t>(std::lround(pulse.scanAngle / kAngleUnit)));
        storeLe(record + kPointSource, sourceId);
        storeLe(record + kGpsTime, pulse.gpsTime);
        storeLe(record + kRed, colorTo16Bit(echo.color.x));
        storeLe(record + kGreen, colorTo16Bit(echo.color.y));
        storeLe(record + kBlue, colorTo16Bit(echo.color.z));
    }
}

/// Bounds and counts that the header tells.
struct Summary
{
    std::array<int32_t, 3> min;
    std::array<int32_t, 3> max;
    std::array<uint64_t, 16> pointsByReturn{};

    Summary()
    {
        min.fill(std::numeric_limits<int32_t>::max());
        max.fill(std::numeric_limits<int32_t>::min());
    }

    void add(const uint8_t* records, size_t count)
    {
        for (size_t i = 0; i < count; ++i, records += kPointSize) {
            for (size_t axis = 0; axis < 3; ++axis) {
                const auto value = loadLe<int32_t>(records + kX + 4 * axis);
                min[axis] = std::min(min[axis], value);
                max[axis] = std::max(max[axis], value);
            }
            ++pointsByReturn[records[kReturns] & 0x0F];
        }
    }
};

std::vector<uint8_t> makeHeader(uint64_t points, const Summary& summary)
{
    const size_t wktLength = sizeof kWkt; // the NUL is part of the record
    std::vector<uint8_t> bytes(kHeaderSize + kVlrHeaderSize + wktLength, 0);
    uint8_t* header = bytes.data();
    storeText(header + kSignature, kSignatureSize, "LASF");
    storeLe<uint16_t>(header + kGlobalEncoding, kGpsStandardTimeBit | kWktBit);
    header[kVersionMajor] = 1;
    header[kVersionMinor] = 4;
    storeText(header + kSystemIdentifier, kSoftwareSize, "SYNTHETIC");
    storeText(header + kGeneratingSoftware, kSoftwareSize, "brx sample");
    storeLe<uint16_t>(header + kCreationDay, 222);
    storeLe<uint16_t>(header + kCreationYear, 2021);
    storeLe<uint16_t>(header + kHeaderSizeField, static_cast<uint16_t>(kHeaderSize));
    storeLe<uint32_t>(header + kPointDataStart, static_cast<uint32_t>(bytes.size()));
    storeLe<uint32_t>(header + kVlrCount, 1);
    header[kPointFormat] = kStorePointFormat;
    storeLe<uint16_t>(header + kRecordLength, static_cast<uint16_t>(kPointSize));
    storeLe<uint64_t>(header + kPointCount, points);
    for (size_t axis = 0; axis < 3; ++axis) {
        storeLe<double>(header + LasLayout::kScale + 8 * axis, Sample::kScale);
        storeLe<double>(header + kOffset + 8 * axis, kOrigin[axis]);
        storeLe<double>(header + kBounds + 16 * axis, summary.max[axis] * Sample::kScale + kOrigin[axis]);
        storeLe<double>(header + kBounds + 16 * axis + 8, summary.min[axis] * Sample::kScale + kOrigin[axis]);
    }
    for (size_t i = 0; i < 15; ++i)
        storeLe<uint64_t>(header + kPointsByReturn + 8 * i, summary.pointsByReturn[i + 1]);

    const std::vector<uint8_t> vlr = makeVlr("LASF_Projection", 2112, "OGC coordinate system WKT", wktLength);
    std::memcpy(std::copy(vlr.begin(), vlr.begin() + kVlrHeaderSize, header + kHeaderSize), kWkt, wktLength);
    return bytes;
}

LazItems lazItems()
{
    return makeLazItems(kStorePointFormat, kPointSize);
}

/// What a file of this name has in front of its points.
std::vector<uint8_t> makeHead(uint64_t points, const Summary& summary, const std::string& path)
{
    std::vector<uint8_t> head = makeHeader(points, summary);
    if (isLazName(path)) makeLazHead(head, lazItems());
    return head;
}

/// Flies the survey and writes what comes back, in the order of time.
class Survey
{
public:
    Survey(const SampleOptions& options, const Scene& scene)
        : _options(options), _scanner(scene), _plan(scene.landscape(), options.points, expectedEchoes(scene))
    {
    }

    Status write(OutputFile& file)
    {
        _headerSize = makeHead(0, Summary(), _options.output).size();
        if (isLazName(_options.output))
            _lazPoints = std::make_unique<LazPointWriter>(
                lazItems(), _headerSize, _options.points,
                [&file](uint64_t position, const void* data, uint64_t length) {
                    return file.write(position, data, length);
                });
        for (const FlightLine& line : _plan.mainLines())
            if (Status status = fly(line, file); !status) return status;
        for (uint64_t cross = 0; _written < _options.points; ++cross)
            if (Status status = fly(_plan.crossLine(cross), file); !status) return status;
        if (_lazPoints) {
            uint64_t end = 0;
            if (Status status = _lazPoints->finish(end); !status) return status;
        }
        const std::vector<uint8_t> header = makeHead(_written, _summary, _options.output);
        return file.write(0, header.data(), header.size());
    }

private:
    const SampleOptions& _options;
    const Scanner _scanner;
    const FlightPlan _plan;
    size_t _headerSize = 0;
    std::unique_ptr<LazPointWriter> _lazPoints; ///< of a compressed file
    uint64_t _written = 0;
    Summary _summary;

    unsigned threads() const
    {
        return _options.threads ? _options.threads : std::max(1u, std::thread::hardware_concurrency());
    }

    /// Echoes that a pulse has on average on this landscape.
    static double expectedEchoes(const Scene& scene)
    {
        constexpr int kTrials = 20000;
        const double size = scene.landscape().size();
        const Scanner scanner(scene);
        Random random(scene.landscape().seed() + 77);
        uint64_t echoes = 0;
        for (int i = 0; i < kTrials; ++i) {
            const Vec3 direction = normalized({0, random.between(-0.36, 0.36), -1});
            const Vec3 target{random.between(0, size), random.between(0, size), 120};
            echoes += scanner.send({target - direction * 600, direction}, random).count;
        }
        return static_cast<double>(echoes) / kTrials;
    }

    std::vector<uint8_t> scan(const Chunk& chunk) const
    {
        std::vector<uint8_t> records;
        Random random(chunk.seed);
        Pulse pulse;
        for (uint64_t scanLine = chunk.firstScanLine; scanLine < chunk.endScanLine; ++scanLine)
            for (uint64_t place = 0; place < _plan.pulsesPerScanLine(); ++place)
                if (_plan.aim(chunk.line, scanLine, place, random, pulse))
                    appendRecords(pulse, _scanner.send(pulse.ray, random), chunk.line.sourceId, records);
        return records;
    }

    /// Scans a line, some chunks at once, until it ends or all points are written.
    Status fly(const FlightLine& line, OutputFile& file)
    {
        const uint64_t step = std::max<uint64_t>(1, kPulsesPerChunk / _plan.pulsesPerScanLine());
        std::vector<Chunk> chunks;
        for (uint64_t first = 0; first < line.scanLines; first += step)
            chunks.push_back({line, first, std::min(first + step, line.scanLines),
                              _options.seed * 0x2545F4914F6CDD1D + line.sourceId * 1000003 + first});
        static const std::atomic<bool> never{false};
        const std::atomic<bool>& cancel = _options.cancel ? *_options.cancel : never;
        const size_t together = 4 * threads();
        for (size_t begin = 0; begin < chunks.size() && _written < _options.points; begin += together) {
            std::vector<std::vector<uint8_t>> scanned(std::min(together, chunks.size() - begin));
            Status status = parallelFor(threads(), scanned.size(), cancel, [&](size_t i) -> Status {
                scanned[i] = scan(chunks[begin + i]);
                return {};
            });
            if (status) status = append(scanned, cancel, file);
            if (!status) return status;
            if (_options.progress) _options.progress(_written, _options.points);
        }
        return {};
    }

    /// Writes as many points as are wanted still.
    Status append(std::vector<std::vector<uint8_t>>& scanned, const std::atomic<bool>& cancel,
                  OutputFile& file)
    {
        std::vector<uint64_t> firsts;
        for (std::vector<uint8_t>& records : scanned) {
            const uint64_t count =
                std::min<uint64_t>(records.size() / kPointSize, _options.points - _written);
            records.resize(count * kPointSize);
            if (count > 0) cutLastPulse(records, count);
            _summary.add(records.data(), count);
            firsts.push_back(_written);
            _written += count;
        }
        return parallelFor(threads(), scanned.size(), cancel, [&](size_t i) -> Status {
            const std::vector<uint8_t>& records = scanned[i];
            if (_lazPoints) return _lazPoints->write(firsts[i], records.data(), records.size() / kPointSize);
            return file.write(_headerSize + firsts[i] * kPointSize, records.data(), records.size());
        });
    }

    /// Where a pulse is cut by the end of the survey, its points tell the returns that are left.
    static void cutLastPulse(std::vector<uint8_t>& records, uint64_t count)
    {
        const auto returnsOf = [&](uint64_t i) -> uint8_t& { return records[i * kPointSize + kReturns]; };
        const unsigned left = returnsOf(count - 1) & 0x0F;
        for (uint64_t i = count - left; i < count; ++i)
            returnsOf(i) = static_cast<uint8_t>((returnsOf(i) & 0x0F) | left << 4);
    }
};

Status writeSurvey(const SampleOptions& options)
{
    if (options.points == 0 || options.points > kMaxSamplePoints)
        return Status::failure(options.output + ": a sample has 1 to " + std::to_string(kMaxSamplePoints) +
                               " points");
    OutputFile file;
    if (isCopcName(options.output))
        return Status::failure(options.output +
                               ": a sample has no octree, which COPC needs; choose a name that ends in .laz "
                               "alone, build a store of it and export that");
    const uint64_t size =
        isLazName(options.output) ? 0 : makeHeader(0, Summary()).size() + options.points * kPointSize;
    if (Status status = file.create(options.output, options.overwrite, size); !status) return status;
    const Landscape landscape(sizeFor(options.points), options.seed);
    Scene scene(landscape);
    furnish(scene);
    if (Status status = Survey(options, scene).write(file); !status) return status;
    return file.commit();
}

} // namespace

} // namespace Sample

Status writeSampleSurvey(const SampleOptions& options)
{
    return runToFile(options.output, "", [&] { return Sample::writeSurvey(options); });
}

} // namespace VelBrx
