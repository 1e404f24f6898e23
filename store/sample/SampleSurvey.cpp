#include <VelBrx/SampleSurvey.h>

#include "store/io/ByteIo.h"
#include "store/io/OutputFile.h"
#include "store/io/ParallelRun.h"
#include "store/las/LasFile.h"
#include "store/las/LasLayout.h"
#include "store/las/RecordFormat.h"
#include "store/las/VlrHeader.h"
#include "store/las/laz/LazPointWriter.h"
#include "store/sample/FlightPlan.h"
#include "store/sample/Furnish.h"
#include "store/sample/Scanner.h"

#include <algorithm>
#include <cmath>
#include <cstring>
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

/// Of a file whose points are not compressed.
constexpr size_t kHeadSize = kHeaderSize + kVlrHeaderSize + sizeof kWkt; // the NUL is part of the record

double sizeFor(uint64_t points)
{
    return std::floor(
        std::clamp(std::sqrt(static_cast<double>(points) / kPointsPerSquareMetre), kLeastSize, kLargestSize));
}

uint16_t colorTo16Bit(double value)
{
    return static_cast<uint16_t>(std::lround(std::clamp(value, 0.0, 1.0) * 65535));
}

/// The records of one pulse.
void appendRecords(const Pulse& pulse, const Echoes& echoes, std::vector<uint8_t>& records)
{
    for (size_t i = 0; i < echoes.count; ++i) {
        const Echo& echo = echoes.echo[i];
        records.resize(records.size() + kPointSize, 0);
        uint8_t* record = records.data() + records.size() - kPointSize;
        for (int axis = 0; axis < 3; ++axis)
            storeLe(record + kX + 4 * axis,
                    static_cast<int32_t>(std::lround(echo.position[axis] / Sample::kScale)));
        storeLe(record + kIntensity, echo.intensity);
        record[kReturns] = static_cast<uint8_t>((i + 1) | echoes.count << 4);
        record[kFlags] = static_cast<uint8_t>(0x40 | (pulse.isAtEdge ? 0x80 : 0));
        record[kClass] = echo.pointClass;
        storeLe(record + kScanAngle, static_cast<int16_t>(std::lround(pulse.scanAngle / kAngleUnit)));
        storeLe(record + kPointSource, pulse.sourceId);
        storeLe(record + kGpsTime, pulse.gpsTime);
        for (int band = 0; band < 3; ++band)
            storeLe(record + kRed + 2 * band, colorTo16Bit(echo.color[band]));
    }
}

/// What the file has in front of its points.
std::vector<uint8_t> makeHead(uint64_t points, const RecordScan& scan, bool isLaz)
{
    const std::vector<uint8_t> vlr =
        makeVlr("LASF_Projection", 2112, "OGC coordinate system WKT", sizeof kWkt);
    std::vector<uint8_t> bytes(kHeadSize);
    uint8_t* header = bytes.data();
    std::copy(vlr.begin(), vlr.end(), header + kHeaderSize);
    std::memcpy(header + kHeadSize - sizeof kWkt, kWkt, sizeof kWkt);
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
        storeLe<double>(header + kBounds + 16 * axis, scan.max[axis] * Sample::kScale + kOrigin[axis]);
        storeLe<double>(header + kBounds + 16 * axis + 8, scan.min[axis] * Sample::kScale + kOrigin[axis]);
    }
    for (size_t i = 0; i < 15; ++i)
        storeLe<uint64_t>(header + kPointsByReturn + 8 * i, scan.pointsByReturn[i + 1]);
    if (isLaz) makeLazHead(bytes, makeLazItems(kStorePointFormat, kPointSize));
    return bytes;
}

/// Flies the survey and writes what comes back, in the order of time.
class Survey
{
public:
    Survey(const SampleOptions& options, const Scene& scene, OutputFile& file)
        : _points(options.points), _seed(options.seed), _file(file), _scene(scene),
          _plan(scene.landscape().size(), options.points),
          _step(std::max<uint64_t>(1, kPulsesPerChunk / _plan.pulses())),
          _run(
              options.threads,
              [&options](const BuildProgress& state) {
                  if (options.progress) options.progress(state.pointsDone, state.pointsTotal);
              },
              options.cancel)
    {
        _run.setTotal(_points);
        if (!isLazName(options.output)) return;
        _lazPoints = std::make_unique<LazPointWriter>(
            makeLazItems(kStorePointFormat, kPointSize), makeHead(0, _scan, true).size(), _points,
            [&file](uint64_t position, const void* data, uint64_t length) {
                return file.write(position, data, length);
            });
    }

    Status write()
    {
        std::vector<Chunk> chunks;
        for (uint64_t first = 0; _written < _points; first += chunks.size()) {
            const uint64_t needed = (_points - _written) / (_step * _plan.pulses()) + 1;
            chunks.resize(std::min<uint64_t>(4 * _run.threads(), needed));
            Status status = _run.forEach(chunks.size(), [&](size_t i) -> Status {
                chunks[i] = scan(first + i);
                return {};
            });
            if (status) status = append(chunks);
            if (!status) return status;
        }
        uint64_t end = 0;
        if (_lazPoints)
            if (Status status = _lazPoints->finish(end); !status) return status;
        const std::vector<uint8_t> head = makeHead(_written, _scan, _lazPoints != nullptr);
        return _file.write(0, head.data(), head.size());
    }

private:
    /// Records of some scan lines of a flight line, one task's work.
    using Chunk = std::vector<uint8_t>;

    const uint64_t _points;
    const uint64_t _seed;
    OutputFile& _file;
    const Scene& _scene;
    const FlightPlan _plan;
    const uint64_t _step; ///< scan lines of a chunk
    ParallelRun _run;
    std::unique_ptr<LazPointWriter> _lazPoints; ///< of a compressed file
    uint64_t _written = 0;
    RecordScan _scan;

    Chunk scan(uint64_t number) const
    {
        const uint64_t chunksPerLine = (_plan.scanLines() + _step - 1) / _step;
        const uint64_t first = number % chunksPerLine * _step;
        Chunk records;
        Random random(_seed * 0x2545F4914F6CDD1D + number);
        Pulse pulse;
        for (uint64_t scanLine = first; scanLine < std::min(first + _step, _plan.scanLines()); ++scanLine)
            for (uint64_t place = 0; place < _plan.pulses(); ++place)
                if (_plan.aim(number / chunksPerLine, scanLine, place, random, pulse))
                    appendRecords(pulse, sendPulse(_scene, pulse.ray, random), records);
        return records;
    }

    /// Writes as many points as are wanted still.
    Status append(std::vector<Chunk>& chunks)
    {
        std::vector<uint64_t> firsts;
        for (Chunk& records : chunks) {
            const uint64_t count = std::min<uint64_t>(records.size() / kPointSize, _points - _written);
            records.resize(count * kPointSize);
            if (count > 0) cutLastPulse(records, count);
            RecordFormat(kStorePointFormat, kPointSize).scan(records.data(), count, _scan);
            firsts.push_back(_written);
            _written += count;
        }
        return _run.forEach(chunks.size(), [&](size_t i) -> Status {
            const Chunk& records = chunks[i];
            const uint64_t count = records.size() / kPointSize;
            _run.done(count);
            if (_lazPoints) return _lazPoints->write(firsts[i], records.data(), count);
            return _file.write(kHeadSize + firsts[i] * kPointSize, records.data(), records.size());
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
    const uint64_t size = isLazName(options.output) ? 0 : kHeadSize + options.points * kPointSize;
    if (Status status = file.create(options.output, options.overwrite, size); !status) return status;
    const Landscape landscape(sizeFor(options.points), options.seed);
    Scene scene(landscape);
    furnish(scene);
    if (Status status = Survey(options, scene, file).write(); !status) return status;
    return file.commit();
}

} // namespace

} // namespace Sample

Status writeSampleSurvey(const SampleOptions& options)
{
    return runToFile(options.output, "", [&] { return Sample::writeSurvey(options); });
}

} // namespace VelBrx
