#include "tests/support/TestSurvey.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <vector>

namespace {

constexpr size_t kHeaderSize = 227;
constexpr size_t kRecordLength = 26; // of point format 2
constexpr double kScale = 0.001;

template <class T>
void put(std::vector<char>& bytes, size_t position, T value)
{
    std::memcpy(bytes.data() + position, &value, sizeof value);
}

} // namespace

bool TestSurvey::write(const std::string& path) const
{
    const auto count = static_cast<uint32_t>(side) * static_cast<uint32_t>(side);
    const double far = side - 1.0;
    std::vector<char> bytes(kHeaderSize + count * kRecordLength);
    std::memcpy(bytes.data(), "LASF", 4);
    put<uint8_t>(bytes, 24, 1);
    put<uint8_t>(bytes, 25, 2);
    put<uint16_t>(bytes, 94, kHeaderSize);
    put<uint32_t>(bytes, 96, kHeaderSize);
    put<uint8_t>(bytes, 104, 2);
    put<uint16_t>(bytes, 105, kRecordLength);
    put<uint32_t>(bytes, 107, count);
    put<uint32_t>(bytes, 111, count);
    const double numbers[] = {kScale, kScale, kScale, x, y, z, x + far, x, y + far, y, z + heightOf(side - 1),
                              z};
    std::memcpy(bytes.data() + 131, numbers, sizeof numbers);

    size_t record = kHeaderSize;
    for (int row = 0; row < side; ++row) {
        for (int column = 0; column < side; ++column, record += kRecordLength) {
            put(bytes, record, static_cast<int32_t>(std::lround(column / kScale)));
            put(bytes, record + 4, static_cast<int32_t>(std::lround(row / kScale)));
            put(bytes, record + 8, static_cast<int32_t>(std::lround(heightOf(column) / kScale)));
            put<uint8_t>(bytes, record + 14, 1 | 1 << 3);
            put(bytes, record + 15, static_cast<uint8_t>(2 + column % classes));
            put<uint16_t>(bytes, record + 20, red);
            put<uint16_t>(bytes, record + 22, green);
            put<uint16_t>(bytes, record + 24, blue);
        }
    }
    return static_cast<bool>(std::ofstream(path, std::ios::binary)
                                 .write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
}
