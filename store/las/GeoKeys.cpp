#include "store/las/GeoKeys.h"

#include "store/io/ByteIo.h"

namespace VelBrx {

std::string epsgOfGeoKeys(const uint8_t* keys, size_t size)
{
    constexpr size_t kKeySize = 8; // key id, place of its value (0: here), count, value; uint16 each
    constexpr uint16_t kGeographicType = 2048;
    constexpr uint16_t kProjectedType = 3072;
    constexpr uint16_t kUserDefined = 32767;
    uint16_t projected = 0;
    uint16_t geographic = 0;
    for (size_t key = kKeySize; key + kKeySize <= size; key += kKeySize) {
        const uint16_t id = loadLe<uint16_t>(keys + key);
        const uint16_t value = loadLe<uint16_t>(keys + key + 6);
        if (loadLe<uint16_t>(keys + key + 2) != 0 || value == 0 || value == kUserDefined) continue;
        if (id == kProjectedType) projected = value;
        if (id == kGeographicType) geographic = value;
    }
    const uint16_t code = projected != 0 ? projected : geographic;
    return code == 0 ? std::string() : "EPSG:" + std::to_string(code);
}

} // namespace VelBrx
