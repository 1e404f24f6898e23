#include "bench/RatioReporter.h"
#include "bench/SampleStore.h"

#include <VelBrx/PointCounts.h>
#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include "store/PointScan.h"
#include "store/StoreIndex.h"
#include "store/io/FileReader.h"

namespace {

constexpr uint64_t kPoints = 5000000;

const SampleStore& sampleStore()
{
    static const SampleStore store(kPoints);
    return store;
}

void setPoints(benchmark::State& state)
{
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(sampleStore().pointCount()));
}

void verify(benchmark::State& state)
{
    for (auto _ : state)
        if (!VelBrx::verifyStore(sampleStore().path()).empty()) state.SkipWithError("the store is damaged");
    setPoints(state);
}

void count(benchmark::State& state)
{
    for (auto _ : state) {
        VelBrx::PointCounts counts;
        if (!countPoints(sampleStore().path(), counts)) state.SkipWithError("the store cannot be read");
    }
    setPoints(state);
}

/// Reads all records on all processors and looks at none.
void readAll(benchmark::State& state)
{
    VelBrx::FileReader file;
    VelBrx::StoreInfo info;
    if (!file.open(sampleStore().path()) || !readStoreInfo(sampleStore().path(), info)) {
        state.SkipWithError("the store cannot be read");
        return;
    }
    const std::vector<VelBrx::PointRun> all{{0, static_cast<int64_t>(info.header.pointCount), 0}};
    const auto look = [](unsigned, const VelBrx::PointRun&, const uint8_t* records) {
        benchmark::DoNotOptimize(*records);
    };
    for (auto _ : state)
        if (!scanPoints(file, info.header.pointDataStart, all, look)) state.SkipWithError("cannot be read");
    setPoints(state);
}

} // namespace

BENCHMARK(verify)->Name("verify points of a store/ours")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(readAll)->Name("verify points of a store/limit")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(count)->Name("count points of a store/ours")->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(readAll)->Name("count points of a store/limit")->MeasureProcessCPUTime()->UseRealTime();

int main(int argc, char** argv)
{
    return runBenchmarks(argc, argv);
}
