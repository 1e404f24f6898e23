#include "bench/TiledSurvey.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"

#include <VelBrx/Builder.h>
#include <VelBrx/SampleSurvey.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

using namespace VelBrx;

namespace {

using Records = std::vector<const uint8_t*>;

void check(const Status& status)
{
    if (!status) throw std::runtime_error(status.message());
}

std::vector<uint8_t> readFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void build(const std::string& survey, const std::string& store)
{
    BuildOptions options;
    options.inputs = {survey};
    options.output = store;
    BuildReport report;
    check(buildStore(options, report));
}

Records recordsOf(const std::vector<uint8_t>& survey)
{
    const uint8_t* const first = survey.data() + loadLe<uint32_t>(survey.data() + LasLayout::kPointDataStart);
    Records records(loadLe<uint64_t>(survey.data() + LasLayout::kPointCount));
    for (size_t i = 0; i < records.size(); ++i)
        records[i] = first + i * LasLayout::kPointSize;
    return records;
}

/// Cuts the records into `count` parts of equal size along an axis.
std::vector<Records> cut(Records records, size_t count, size_t coordinate)
{
    std::sort(records.begin(), records.end(), [coordinate](const uint8_t* a, const uint8_t* b) {
        return loadLe<int32_t>(a + coordinate) < loadLe<int32_t>(b + coordinate);
    });
    std::vector<Records> parts;
    for (size_t i = 0; i < count; ++i) {
        const auto at = [&](size_t part) {
            return records.begin() + static_cast<std::ptrdiff_t>(records.size() * part / count);
        };
        parts.emplace_back(at(i), at(i + 1));
    }
    return parts;
}

} // namespace

TiledSurvey::TiledSurvey(uint64_t points, size_t columns, size_t rows) : _whole(_folder.file("whole.brx"))
{
    SampleOptions sample;
    sample.output = _folder.file("survey.las");
    sample.points = points;
    check(writeSampleSurvey(sample));
    build(sample.output, _whole);

    const std::vector<uint8_t> survey = readFile(sample.output);
    const Records all = recordsOf(survey);
    _pointCount = all.size();
    for (Records& column : cut(all, columns, LasLayout::kX))
        for (const Records& tile : cut(std::move(column), rows, LasLayout::kY))
            buildTile(survey, tile);
}

void TiledSurvey::buildTile(const std::vector<uint8_t>& survey, const Records& records)
{
    const auto start =
        static_cast<std::ptrdiff_t>(loadLe<uint32_t>(survey.data() + LasLayout::kPointDataStart));
    std::vector<uint8_t> tile(survey.begin(), survey.begin() + start);
    storeLe(tile.data() + LasLayout::kPointCount, uint64_t{records.size()});
    for (const uint8_t* record : records)
        tile.insert(tile.end(), record, record + LasLayout::kPointSize);
    const std::string path = _folder.write("tile.las", tile);
    _tiles.push_back(_folder.file("tile" + std::to_string(_tiles.size()) + ".brx"));
    build(path, _tiles.back());
}
