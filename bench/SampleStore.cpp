#include "bench/SampleStore.h"

#include <VelBrx/Builder.h>
#include <VelBrx/SampleSurvey.h>

#include <stdexcept>

SampleStore::SampleStore(uint64_t points) : _path(_folder.file("sample.brx"))
{
    VelBrx::SampleOptions sample;
    sample.output = _folder.file("sample.las");
    sample.points = points;
    if (const VelBrx::Status written = writeSampleSurvey(sample); !written)
        throw std::runtime_error(written.message());

    VelBrx::BuildOptions build;
    build.inputs = {sample.output};
    build.output = _path;
    build.storeId = 1;
    VelBrx::BuildReport report;
    if (const VelBrx::Status built = buildStore(build, report); !built)
        throw std::runtime_error(built.message());
    _pointCount = report.points;
    std::filesystem::remove(sample.output);
}
