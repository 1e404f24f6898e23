// Stores as an enemy would write them, with checksums that fit: head, index, records of the source, points,
// normals.

#include "tests/fuzz/FuzzFile.h"
#include "tests/fuzz/StoreMutator.h"

#include <VelBrx/ExportLas.h>
#include <VelBrx/Normals.h>
#include <VelBrx/PointVisit.h>
#include <VelBrx/SourcePoint.h>
#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include <atomic>

using namespace VelBrx;

namespace {

uint64_t visited(const std::string& store)
{
    std::atomic<uint64_t> points{0};
    PointVisit visit;
    visit.store = store;
    visit.threads = 1;
    return reported(visitPoints(visit, [&](const PointBlock& block) { points += block.count; }))
               ? points.load()
               : 0;
}

/// What comes out is a file or a failure.
void exportTo(const std::string& name, const std::string& store)
{
    static const TempFolder folder;
    ExportOptions options;
    options.store = store;
    options.output = folder.file(name);
    options.overwrite = true;
    options.threads = 1;
    ExportReport report;
    (void)reported(exportLas(options, report));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const FuzzFile file("store.brx");
    const std::string& path = file.put(data, size);
    const bool sound = verifyStore(path).empty();
    expect(!sound || isStore(path), "sound and no store");
    std::vector<std::string> names;
    (void)reported(readSourceNames(path, names));
    StoreInfo info;
    std::unique_ptr<File> points;
    if (!reported(openStore(path, info, points))) {
        expect(!sound, "a sound store cannot be opened");
        return 0;
    }
    for (const uint64_t point : {uint64_t{0}, info.header.pointCount - 1, info.header.pointCount}) {
        SourcePoint source;
        (void)reported(readSourcePoint(path, *points, point, source));
    }
    expect(visited(path) == info.header.pointCount || !sound, "points of a sound store are left out");
    if (size % 8 == 0) exportTo("out.las", path);
    if (size % 8 == 1) exportTo("out.laz", path);
    if (size % 8 == 2) exportTo("out.copc.laz", path);
    NormalsOptions normals;
    normals.store = path;
    normals.overwrite = true;
    normals.threads = 1;
    if (size % 8 == 3) (void)reported(writeNormals(normals));
    return 0;
}
