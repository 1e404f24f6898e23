// Decoding the chunks of real LAZ files from memory, again and again until five million points are decoded:
// points a second of one thread and of two. Needs the folder that VELBRX_TEST_DATA names.

#include "tests/store/laz/LazTestFile.h"

#include "store/FileReader.h"
#include "store/las/laz/LazChunkDecoder.h"
#include "store/las/laz/LazChunkTable.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

using namespace VelBrx;

namespace {

constexpr uint64_t kPoints = 5'000'000;

struct CompressedFile
{
    std::vector<uint8_t> bytes;
    LazItems items;
    LazChunkTable table;
};

Status load(const std::string& path, CompressedFile& file)
{
    LasHead head;
    file.bytes = readBytes(path);
    if (Status status = readLazHead(file.bytes, head, file.items); !status) return status;
    FileReader reader;
    if (Status status = reader.open(path); !status) return status;
    return readLazChunkTable(reader, file.items, head.pointDataStart, head.pointCount, file.table);
}

/// Decodes chunks until `decoded` reaches `kPoints`. False when one is damaged.
bool decodeChunks(const CompressedFile& file, std::atomic<uint64_t>& decoded, std::atomic<size_t>& next)
{
    LazChunkDecoder decoder(file.items);
    std::vector<uint8_t> records;
    while (decoded < kPoints) {
        const LazChunk& chunk = file.table.chunks[next++ % file.table.chunks.size()];
        records.resize(std::max<size_t>(records.size(), chunk.pointCount * file.items.recordLength));
        if (!decoder.decode(file.bytes.data() + chunk.position, chunk.size, chunk.pointCount, records.data()))
            return false;
        decoded += chunk.pointCount;
    }
    return true;
}

void decodeFile(benchmark::State& state, const std::string& name)
{
    const char* folder = std::getenv("VELBRX_TEST_DATA");
    CompressedFile file;
    const Status status =
        folder ? load(std::string(folder) + "/survey/" + name, file) : Status::failure("no VELBRX_TEST_DATA");
    if (!status) {
        state.SkipWithError(status.message().c_str());
        return;
    }
    uint64_t points = 0;
    for (auto _ : state) {
        std::atomic<uint64_t> decoded{0};
        std::atomic<size_t> next{0};
        std::atomic<bool> sound{true};
        std::vector<std::thread> others;
        for (int64_t k = 1; k < state.range(0); ++k)
            others.emplace_back([&] { sound = decodeChunks(file, decoded, next) && sound; });
        sound = decodeChunks(file, decoded, next) && sound;
        for (std::thread& other : others)
            other.join();
        if (!sound) state.SkipWithError("a chunk is damaged");
        points += decoded;
    }
    state.counters["points"] = benchmark::Counter(static_cast<double>(points), benchmark::Counter::kIsRate);
}

void measure(const char* label, const char* name)
{
    benchmark::RegisterBenchmark(label, decodeFile, name)
        ->ArgName("threads")
        ->Arg(1)
        ->Arg(2)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
}

} // namespace

int main(int argc, char** argv)
{
    measure("decode/format1/lone-star", "PDAL__lone-star.laz");
    measure("decode/format1/forest", "pyfor__test.laz");
    measure("decode/format3/autzen", "PDAL__autzen_trim.laz");
    measure("decode/format6/city", "ign-pdal-tools__test_semis_2023_0292_6833_LA93_IGN69.laz");
    measure("decode/format7/autzen", "silvimetric__autzen_test.copc.laz");
    measure("decode/format7/coast", "ign-pdal-tools__test_semis_2021_0382_6565_LA93_IGN69_cropped.laz");
    measure("decode/format7/lion", "potree__lion_takanawa.copc.laz");
    measure("decode/format7/ell", "../generated/copc.js__ellipsoid-1.4.laz");
    measure("decode/format8/field", "ign-pdal-tools__las_with_several_extra_byte_bloc.laz");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
