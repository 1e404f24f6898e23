#include "store/las/Projection.h"

#include "store/io/ByteIo.h"

#include <algorithm>

namespace VelBrx {

namespace {

/// The horizontal coordinate system that GeoTIFF keys name by its code; empty where they name none.
std::string epsgOf(const std::vector<uint8_t>& keys)
{
    constexpr size_t kKeySize = 8; // key id, place of its value (0: here), count, value; uint16 each
    constexpr uint16_t kGeographicType = 2048;
    constexpr uint16_t kProjectedType = 3072;
    constexpr uint16_t kUserDefined = 32767;
    uint16_t projected = 0;
    uint16_t geographic = 0;
    for (size_t key = kKeySize; key + kKeySize <= keys.size(); key += kKeySize) {
        const uint16_t id = loadLe<uint16_t>(keys.data() + key);
        const uint16_t value = loadLe<uint16_t>(keys.data() + key + 6);
        if (loadLe<uint16_t>(keys.data() + key + 2) != 0 || value == 0 || value == kUserDefined) continue;
        if (id == kProjectedType) projected = value;
        if (id == kGeographicType) geographic = value;
    }
    const uint16_t code = projected != 0 ? projected : geographic;
    return code == 0 ? std::string() : "EPSG:" + std::to_string(code);
}

} // namespace

void addProjectionRecord(uint16_t recordId, const uint8_t* data, size_t size, ProjectionRecords& records)
{
    while (size > 0 && data[size - 1] == 0)
        --size;
    if (size == 0) return;
    switch (recordId) {
    case kWktId:
        records.wkt.assign(data, std::find(data, data + size, uint8_t{0}));
        break;
    case kGeoKeysId:
        records.geoKeys.assign(data, data + size);
        break;
    case kGeoDoublesId:
        records.geoDoubles.assign(data, data + size);
        break;
    case kGeoTextsId:
        records.geoTexts.assign(data, data + size);
        break;
    default:
        break;
    }
}

ProjectionRecords projectionOf(const LasFile& file)
{
    ProjectionRecords records;
    for (const std::vector<LasVlr>* list : {&file.evlrs, &file.vlrs})
        for (auto vlr = list->rbegin(); vlr != list->rend(); ++vlr)
            if (vlr->userId == kProjectionUserId)
                addProjectionRecord(vlr->recordId, vlr->data.data(), vlr->data.size(), records);
    return records;
}

bool areSameWords(const ProjectionRecords& a, const ProjectionRecords& b)
{
    if (!a.wkt.empty() && !b.wkt.empty()) return a.wkt == b.wkt;
    return !a.geoKeys.empty() && a.geoKeys == b.geoKeys && a.geoDoubles == b.geoDoubles &&
           a.geoTexts == b.geoTexts;
}

std::string systemOf(const ProjectionRecords& records)
{
    return records.wkt.empty() ? epsgOf(records.geoKeys) : records.wkt;
}

} // namespace VelBrx
