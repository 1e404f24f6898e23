#include "tests/support/TestSurvey.h"

#include "store/io/ByteIo.h"
#include "tests/support/TestLas.h"

#include <cmath>
#include <fstream>
#include <vector>

bool TestSurvey::write(const std::string& path) const
{
    TestLas las;
    las.versionMinor = 2;
    las.pointFormat = 2;
    las.recordLength = 26;
    las.scale.fill(0.001);
    las.offset = {x, y, z};
    const auto steps = [](double metres) { return static_cast<int32_t>(std::lround(metres * 1000)); };
    for (int row = 0; row < side; ++row) {
        for (int column = 0; column < side; ++column) {
            std::vector<uint8_t>& record = las.addPoint(steps(column), steps(row), steps(heightOf(column)));
            record[14] = 1 | 1 << 3; // the only return of its pulse
            record[15] = static_cast<uint8_t>(2 + column % classes);
            VelBrx::storeLe<uint16_t>(&record[20], red);
            VelBrx::storeLe<uint16_t>(&record[22], green);
            VelBrx::storeLe<uint16_t>(&record[24], blue);
        }
    }
    const std::vector<uint8_t> bytes = las.bytes();
    return static_cast<bool>(
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())));
}
