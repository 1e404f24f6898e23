// LAS and LAZ files as an enemy would write them, built: a store that verifies and has every point, or a
// failure.

#include "store/las/LasFile.h"
#include "tests/fuzz/FuzzFile.h"

#include <VelBrx/Builder.h>
#include <VelBrx/Verify.h>

using namespace VelBrx;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const FuzzFile file("survey.las");
    const std::string& path = file.put(data, size);
    LasFile las;
    if (!reported(readLasFile(path, las)) || las.pointCount > 500) return 0;
    BuildOptions options;
    options.inputs = {path};
    options.output = file.folder().file("store.brx");
    options.overwrite = true;
    options.storeId = 1;
    options.threads = 1;
    BuildReport report;
    if (!reported(buildStore(options, report))) return 0;
    expect(report.points == las.pointCount, "points are lost");
    for (const std::string& problem : verifyStore(options.output)) {
        std::fprintf(stderr, "%s\n", problem.c_str());
        expect(false, "a store that was built is not sound");
    }
    return 0;
}
