#include "tests/support/TestStore.h"

#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace VelBrx;
using namespace VelBrx::LasLayout;

namespace {

constexpr size_t kHeaderChecksumInIndex = 12;

/// Range of the values that `valueOf` takes over the points; its percentiles are set to its ends.
template <typename ValueOf>
AttributeRange rangeOf(const std::vector<TestPoint>& points, ValueOf valueOf)
{
    AttributeRange range{INFINITY, -INFINITY, 0, 0};
    for (const TestPoint& point : points) {
        const double value = valueOf(point);
        if (!std::isfinite(value)) continue;
        range.min = std::min(range.min, value);
        range.max = std::max(range.max, value);
    }
    if (range.min > range.max) return {};
    range.low = range.min;
    range.high = range.max;
    return range;
}

/// Smallest or largest coordinate of the points along an axis, in file units.
double coordinateEnd(const TestStore& store, size_t axis, bool largest)
{
    const AttributeRange range = rangeOf(store.points, [&](const TestPoint& point) {
        const int32_t steps[3] = {point.x, point.y, point.z};
        return steps[axis] * store.scale[axis] + store.offset[axis];
    });
    return largest ? range.max : range.min;
}

void writeHeader(uint8_t* bytes, const TestStore& store)
{
    std::memcpy(bytes, "LASF", 4);
    bytes[kVersionMajor] = 1;
    bytes[kVersionMinor] = 4;
    storeLe<uint16_t>(bytes + kGlobalEncoding, 16);
    storeLe<uint16_t>(bytes + kHeaderSizeField, kHeaderSize);
    storeLe(bytes + kPointDataStart, static_cast<uint32_t>(store.pointDataStart()));
    storeLe<uint32_t>(bytes + kVlrCount, store.coordinateSystem.empty() ? 0 : 1);
    bytes[kPointFormat] = kStorePointFormat;
    storeLe<uint16_t>(bytes + kRecordLength, kPointSize);
    for (size_t axis = 0; axis < 3; ++axis) {
        storeLe(bytes + kScale + 8 * axis, store.scale[axis]);
        storeLe(bytes + kOffset + 8 * axis, store.offset[axis]);
        storeLe(bytes + kBounds + 16 * axis, coordinateEnd(store, axis, true));
        storeLe(bytes + kBounds + 16 * axis + 8, coordinateEnd(store, axis, false));
    }
    storeLe<uint64_t>(bytes + kEvlrStart, store.indexStart() - kEvlrHeaderSize);
    storeLe<uint32_t>(bytes + kEvlrCount, 1);
    storeLe<uint64_t>(bytes + kPointCount, store.points.size());
    uint64_t byReturn[16] = {};
    for (const TestPoint& point : store.points)
        ++byReturn[point.returnNumber];
    for (size_t number = 1; number < 16; ++number)
        storeLe(bytes + kPointsByReturn + 8 * (number - 1), byReturn[number]);
    if (store.coordinateSystem.empty()) return;
    uint8_t* const vlr = bytes + kHeaderSize;
    std::memcpy(vlr + kVlrUserId, "LASF_Projection", 15);
    storeLe<uint16_t>(vlr + kVlrRecordId, 2112);
    storeLe(vlr + kVlrLength, static_cast<uint16_t>(store.coordinateSystem.size()));
    std::memcpy(vlr + kVlrHeaderSize, store.coordinateSystem.data(), store.coordinateSystem.size());
}

} // namespace

void TestStore::addCell(uint8_t level, uint64_t code, const std::vector<TestPoint>& cellPoints)
{
    index.cells.push_back(
        {level, code, {{static_cast<int64_t>(points.size()), static_cast<int64_t>(cellPoints.size())}}});
    points.insert(points.end(), cellPoints.begin(), cellPoints.end());
}

void TestStore::updateStatistics()
{
    StoreStatistics& statistics = index.statistics;
    statistics = {};
    statistics.elevation =
        rangeOf(points, [&](const TestPoint& point) { return point.z * scale[2] + offset[2]; });
    statistics.intensity = rangeOf(points, [](const TestPoint& point) { return double(point.intensity); });
    statistics.gpsTime = rangeOf(points, [](const TestPoint& point) { return point.gpsTime; });
    for (const TestPoint& point : points) {
        statistics.maxColor = std::max({statistics.maxColor, point.red, point.green, point.blue});
        ++statistics.pointsByClass[point.classCode];
        ++statistics.pointsByReturn[point.returnNumber];
        ++statistics.pointsByNumberOfReturns[point.numberOfReturns];
        statistics.pointSources.push_back(point.sourceId);
    }
    auto& sources = statistics.pointSources;
    std::sort(sources.begin(), sources.end());
    sources.erase(std::unique(sources.begin(), sources.end()), sources.end());
}

size_t TestStore::pointDataStart() const
{
    return kHeaderSize + (coordinateSystem.empty() ? 0 : kVlrHeaderSize + coordinateSystem.size());
}

size_t TestStore::indexStart() const
{
    return pointDataStart() + kPointSize * points.size() + kEvlrHeaderSize;
}

std::vector<uint8_t> TestStore::bytes() const
{
    std::vector<uint8_t> file(indexStart());
    writeHeader(file.data(), *this);
    for (size_t i = 0; i < points.size(); ++i)
        points[i].pack(file.data() + pointDataStart() + kPointSize * i);

    StoreIndex written = index;
    written.headerChecksum = crc32c(file.data(), pointDataStart());
    const std::vector<uint8_t> record = encodeIndex(written);
    const auto recordHeader = storeRecordHeader(kIndexRecordId, record.size(), kIndexDescription);
    std::copy(recordHeader.begin(), recordHeader.end(), file.end() - kEvlrHeaderSize);
    file.insert(file.end(), record.begin(), record.end());
    return file;
}

TestStore smallStore()
{
    TestStore store;
    store.offset[0] = 636000;
    store.offset[1] = 849000;
    store.offset[2] = 400;
    store.coordinateSystem = "LOCAL_CS[\"test\",UNIT[\"metre\",1]]";
    store.index.storeId = 0x0123456789abcdef;
    store.index.cubeMin[0] = 635992;
    store.index.cubeMin[1] = 848992;
    store.index.cubeMin[2] = 392;
    store.index.cubeSize = 16;

    // One step is 0.01: the cube reaches from -800 to 800 steps, a cell of level 1 over 800, of level 2 over
    // 400.
    const auto point = [&](int32_t x, int32_t y, int32_t z) {
        const int n = static_cast<int>(store.points.size());
        TestPoint made;
        made.x = x;
        made.y = y;
        made.z = z;
        made.intensity = static_cast<uint16_t>(100 * x + y);
        made.returnNumber = static_cast<uint8_t>(1 + (x & 1));
        made.numberOfReturns = 2;
        made.classCode = static_cast<uint8_t>(2 + (y & 3));
        made.sourceId = static_cast<uint16_t>(7 + n % 3);
        made.gpsTime = 1e8 + z;
        made.red = static_cast<uint16_t>(256 * (x & 127));
        made.green = static_cast<uint16_t>(256 * (y & 127));
        made.blue = static_cast<uint16_t>(256 * (z & 127));
        return made;
    };
    store.addCell(0, 0, {point(-700, -700, -700), point(10, 20, 30), point(700, 650, 600)});
    store.addCell(1, 0, {point(-799, -10, -400), point(-300, -200, -100)});
    store.addCell(1, 7, {point(1, 2, 3), point(790, 780, 770), point(400, 400, 400)});
    store.addCell(2, 4, {point(-700, -650, -5), point(-500, -450, -399)});
    store.addCell(2, 57, {point(401, 5, 6), point(600, 300, 200), point(799, 399, 399)});
    store.index.cells[0].segments.push_back({static_cast<int64_t>(store.points.size()), 1});
    store.points.push_back(point(-1, 799, -2));
    store.updateStatistics();
    return store;
}

void fitChecksums(std::vector<uint8_t>& file, const TestStore& store)
{
    uint8_t* const index = file.data() + store.indexStart();
    storeLe(index + kHeaderChecksumInIndex, crc32c(file.data(), store.pointDataStart()));
    const size_t checked = file.size() - store.indexStart() - 4;
    storeLe(index + checked, crc32c(index, checked));
}
