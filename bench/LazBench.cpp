// Decoding and encoding the chunks of real LAZ files in memory, on one thread and on two. The limit is the
// arithmetic coder alone, which uses up, or makes, about as many bytes in the largest symbols that it has.
// The files are in the folder that VELBRX_TEST_DATA names.

#include "bench/RatioReporter.h"

#include "store/io/FileReader.h"
#include "store/las/LasFile.h"
#include "store/las/laz/ArithmeticDecoder.h"
#include "store/las/laz/ArithmeticEncoder.h"
#include "store/las/laz/LazChunkDecoder.h"
#include "store/las/laz/LazChunkEncoder.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

using namespace VelBrx;

namespace {

constexpr uint64_t kPoints = 5'000'000; ///< that are coded, the file again and again

struct CompressedFile
{
    std::vector<uint8_t> bytes;
    LasFile head;
    std::vector<uint8_t> records; ///< decoded

    Status load(const std::string& name)
    {
        const char* folder = std::getenv("VELBRX_TEST_DATA");
        if (!folder) return Status::failure("VELBRX_TEST_DATA names no folder");
        const std::string path = std::string(folder) + "/survey/" + name;
        if (Status status = readLasFile(path, head); !status) return status;
        FileReader reader;
        bytes.resize(head.fileSize);
        if (!reader.open(path) || !reader.read(0, bytes.data(), bytes.size()))
            return Status::failure(path + ": cannot be read");
        records.resize(head.pointCount * head.recordLength);
        LazChunkDecoder decoder(items());
        for (const LazChunk& chunk : chunks())
            if (Status status = decoder.decode(bytes.data() + chunk.position, chunk.size, chunk.pointCount,
                                               records.data() + chunk.firstPoint * head.recordLength);
                !status)
                return status;
        return {};
    }

    const LazItems& items() const { return head.laz->items; }
    const std::vector<LazChunk>& chunks() const { return head.laz->chunks.chunks; }
};

class PointDecoding
{
public:
    explicit PointDecoding(const CompressedFile& file) : _file(file), _decoder(file.items()) {}

    bool operator()(const LazChunk& chunk)
    {
        _records.resize(std::max<size_t>(_records.size(), chunk.pointCount * _file.head.recordLength));
        return _decoder
            .decode(_file.bytes.data() + chunk.position, chunk.size, chunk.pointCount, _records.data())
            .ok();
    }

private:
    const CompressedFile& _file;
    LazChunkDecoder _decoder;
    std::vector<uint8_t> _records;
};

class SymbolDecoding
{
public:
    explicit SymbolDecoding(const CompressedFile& file) : _file(file) {}

    bool operator()(const LazChunk& chunk)
    {
        const uint8_t* begin = _file.bytes.data() + chunk.position;
        Laz::SymbolModel<256> model = Laz::kFreshModel<256>;
        Laz::ArithmeticDecoder decoder;
        decoder.start(begin, begin + chunk.size);
        while (!decoder.atEnd())
            benchmark::DoNotOptimize(decoder.evenSymbol(model));
        return true;
    }

private:
    const CompressedFile& _file;
};

class PointEncoding
{
public:
    explicit PointEncoding(const CompressedFile& file) : _file(file), _encoder(file.items()) {}

    bool operator()(const LazChunk& chunk)
    {
        _encoder.encode(_file.records.data() + chunk.firstPoint * _file.head.recordLength, chunk.pointCount,
                        _chunk);
        return _chunk.size() == chunk.size;
    }

private:
    const CompressedFile& _file;
    LazChunkEncoder _encoder;
    std::vector<uint8_t> _chunk;
};

class SymbolEncoding
{
public:
    explicit SymbolEncoding(const CompressedFile& file) : _file(file) {}

    bool operator()(const LazChunk& chunk)
    {
        const uint8_t* begin = _file.bytes.data() + chunk.position;
        Laz::SymbolModel<256> model = Laz::kFreshModel<256>;
        _encoder.start();
        for (const uint8_t* byte = begin; byte != begin + chunk.size; ++byte)
            _encoder.evenSymbol(model, *byte);
        _encoder.finish();
        benchmark::DoNotOptimize(_encoder.size());
        return true;
    }

private:
    const CompressedFile& _file;
    Laz::ArithmeticEncoder _encoder;
};

/// Takes chunk after chunk, the first again after the last, until the threads have taken `kPoints` points.
template <typename Coding>
bool codeChunks(const CompressedFile& file, std::atomic<uint64_t>& points, std::atomic<size_t>& next)
{
    Coding coding(file);
    bool sound = true;
    while (sound && points < kPoints) {
        const LazChunk& chunk = file.chunks()[next++ % file.chunks().size()];
        sound = coding(chunk);
        points += chunk.pointCount;
    }
    return sound;
}

template <typename Coding>
void code(benchmark::State& state, const std::string& name)
{
    CompressedFile file;
    if (const Status status = file.load(name); !status) {
        state.SkipWithError(status.message().c_str());
        return;
    }
    uint64_t points = 0;
    for (auto _ : state) {
        std::atomic<uint64_t> coded{0};
        std::atomic<size_t> next{0};
        std::atomic<bool> sound{true};
        const auto work = [&] {
            if (!codeChunks<Coding>(file, coded, next)) sound = false;
        };
        std::vector<std::thread> others;
        for (int64_t k = 1; k < state.range(0); ++k)
            others.emplace_back(work);
        work();
        for (std::thread& other : others)
            other.join();
        if (!sound) state.SkipWithError("a chunk does not come out as it should");
        points += coded;
    }
    state.SetItemsProcessed(static_cast<int64_t>(points));
}

/// Of one thread the processor's time counts, which other work on the machine does not change; two are to be
/// ready sooner.
void compare(const std::string& what, const std::string& name)
{
    const auto add = [&](const std::string& work, const std::string& label, const auto& function) {
        const std::string title = "LAZ " + work + ", " + what + ", ";
        benchmark::RegisterBenchmark((title + "1 thread/" + label).c_str(), function, name)->Arg(1);
        benchmark::RegisterBenchmark((title + "2 threads/" + label).c_str(), function, name)
            ->Arg(2)
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    };
    add("read", "ours", code<PointDecoding>);
    add("read", "limit", code<SymbolDecoding>);
    add("written", "ours", code<PointEncoding>);
    add("written", "limit", code<SymbolEncoding>);
}

} // namespace

int main(int argc, char** argv)
{
    compare("format 1 tripod", "PDAL__lone-star.laz");
    compare("format 1 forest", "pyfor__test.laz");
    compare("format 3 town", "PDAL__autzen_trim.laz");
    compare("format 6 town", "ign-pdal-tools__test_semis_2023_0292_6833_LA93_IGN69.laz");
    compare("format 7 thin town", "silvimetric__autzen_test.copc.laz");
    compare("format 7 coast", "ign-pdal-tools__test_semis_2021_0382_6565_LA93_IGN69_cropped.laz");
    compare("format 8 field", "ign-pdal-tools__las_with_several_extra_byte_bloc.laz");
    return runBenchmarks(argc, argv);
}
