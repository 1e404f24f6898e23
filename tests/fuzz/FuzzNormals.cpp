// Normals of points as an enemy would place them, unit vectors that point upwards or a failure; and files of
// normals as he would write them, which belong to a store or do not. The first byte says which.

#include "store/io/ByteIo.h"
#include "tests/fuzz/FuzzFile.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TestLas.h"

#include <VelBrx/Builder.h>
#include <VelBrx/Normals.h>
#include <VelBrx/PointRecord.h>
#include <VelBrx/StoreInfo.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

using namespace VelBrx;

namespace {

constexpr size_t kHeader = 16; ///< of a normals file
constexpr size_t kNormal = 16;
constexpr size_t kPlace = 12; ///< bytes of a point's three coordinates
constexpr uint64_t kPoints = 60;
constexpr int32_t kSide = 1000; ///< of the cube that the points fill

/// A store whose points can be moved.
class MovedPoints
{
public:
    MovedPoints()
    {
        TestLas las;
        for (int32_t i = 0; i < static_cast<int32_t>(kPoints); ++i)
            las.addPoint(i * 37 % kSide, i * 91 % kSide, i % 2 * (kSide - 1));
        BuildOptions options;
        options.inputs = {_folder.write("survey.las", las.bytes())};
        options.output = _folder.file("built.brx");
        options.storeId = 1;
        options.threads = 1;
        BuildReport report;
        expect(reported(buildStore(options, report)), "no store");
        _bytes = readFile(options.output);
        expect(readStoreInfo(options.output, info).ok(), "no store");
    }

    /// The store with its first points at these places, in the cube unless `anywhere`.
    const std::string& moved(const uint8_t* places, size_t size, bool anywhere)
    {
        std::vector<uint8_t> bytes = _bytes;
        const auto start = static_cast<size_t>(info.header.pointDataStart);
        for (size_t at = 0; at + 4 <= std::min(size, kPoints * kPlace); at += 4) {
            const auto place = loadLe<int32_t>(places + at);
            storeLe(&bytes[start + at / kPlace * PointRecord::kPointSize + at % kPlace],
                    anywhere ? place : std::abs(place % kSide));
        }
        return _store.put(bytes.data(), bytes.size());
    }

    StoreInfo info;

private:
    const TempFolder _folder;
    const FuzzFile _store{"store.brx"};
    std::vector<uint8_t> _bytes;
};

void expectUpwards(const std::vector<uint8_t>& normals)
{
    expect(normals.size() == kHeader + kPoints * kNormal, "not a normal for each point");
    for (size_t at = kHeader; at < normals.size(); at += kNormal) {
        const auto x = loadLe<float>(&normals[at]);
        const auto y = loadLe<float>(&normals[at + 4]);
        const auto z = loadLe<float>(&normals[at + 8]);
        expect(std::abs(x * x + y * y + z * z - 1) < 1e-4f, "a normal is not of unit length");
        expect(z > 0 || (z == 0 && (x > 0 || (x == 0 && y > 0))), "a normal points downwards");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) return 0;
    static MovedPoints points;
    static const FuzzFile normals("any.normals");
    if (data[0] % 2) {
        (void)reported(checkNormals(normals.put(data + 1, size - 1), points.info.header));
        return 0;
    }
    NormalsOptions options;
    options.store = points.moved(data + 2, size - 2, data[0] & 2);
    options.neighbours = kLeastNeighbours + data[1] % 30u;
    options.overwrite = true;
    options.threads = 1;
    if (reported(writeNormals(options))) {
        expect(findNormals(options.store) == normalsPath(options.store),
               "normals that were written are not found");
        expectUpwards(readFile(normalsPath(options.store)));
    }
    return 0;
}
