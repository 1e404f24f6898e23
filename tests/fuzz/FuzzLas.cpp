// LAS, LAZ and COPC files as an enemy would write them: heads, records, chunk tables and points are read or
// refused.

#include "store/las/LasFile.h"
#include "tests/fuzz/FuzzFile.h"

#include <VelBrx/LasInfo.h>

#include <numeric>

using namespace VelBrx;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const FuzzFile file("survey.las");
    const std::string& path = file.put(data, size);
    LasFile las;
    if (!reported(readLasFile(path, las))) return 0;
    expect(las.laz || las.pointDataEnd() <= size, "points behind the file");
    if (las.pointCount > 500) return 0; // a few bytes may say that they are millions of points
    LasInfo info;
    if (!reported(readLasInfo(path, info))) return 0;
    expect(std::accumulate(info.byClass.begin(), info.byClass.end(), uint64_t{0}) == info.pointCount,
           "classes of more or fewer points than there are");
    return 0;
}
