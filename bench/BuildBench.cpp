// bench_build [--json] [--only WORK] [POINTS...]: stores of the synthetic survey are built, verified and
// exported, 10 million points when no number is given. Each work stands beside the least that it could do:
// copying, reading, decoding or encoding the same bytes, on as many threads. Both are processes of their own,
// so that their memory is their own, in turn. In the folder for temporary files, which needs about six times
// the survey.

#include "tests/support/TempFolder.h"

#include "store/io/ParallelRun.h"
#include "store/las/PointSource.h"
#include "store/las/laz/LazChunkEncoder.h"

#include <VelBrx/Builder.h>
#include <VelBrx/ExportLas.h>
#include <VelBrx/SampleSurvey.h>
#include <VelBrx/Verify.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kRuns = 3;

using Row = nlohmann::ordered_json;

/// What a process took.
struct Cost
{
    double wallSeconds = 0;
    double cpuSeconds = 0;
    double peakMegabytes = 0;
    double writtenBytes = 0;
};

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Does `work` in a process of its own; throws when that fails.
Cost measure(const std::function<bool()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) _exit(work() ? 0 : 1);
    int state = 0;
    rusage usage{};
    if (wait4(child, &state, 0, &usage) != child || !WIFEXITED(state) || WEXITSTATUS(state) != 0)
        throw std::runtime_error("a measured process failed");
    constexpr double kBlockBytes = 512;
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
            seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_maxrss) / 1024,
            static_cast<double>(usage.ru_oublock) * kBlockBytes};
}

bool isDone(const VelBrx::Status& status)
{
    if (!status) std::fprintf(stderr, "bench_build: %s\n", status.message().c_str());
    return status.ok();
}

bool build(const std::string& survey, const std::string& store)
{
    VelBrx::BuildOptions options;
    options.inputs = {survey};
    options.output = store;
    options.overwrite = true;
    VelBrx::BuildReport report;
    return isDone(buildStore(options, report));
}

bool exportTo(const std::string& output, const std::string& store)
{
    VelBrx::ExportOptions options;
    options.store = store;
    options.output = output;
    options.overwrite = true;
    VelBrx::ExportReport report;
    return isDone(exportLas(options, report));
}

/// Hands the file block by block to `use`.
template <typename Use>
bool readBlocks(const std::string& path, const Use& use)
{
    std::vector<char> block(8 << 20);
    std::ifstream in(path, std::ios::binary);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())), in.gcount() > 0)
        use(block.data(), in.gcount());
    return in.eof();
}

bool readAll(const std::string& path)
{
    return readBlocks(path, [](const char*, std::streamsize) {});
}

bool copy(const std::string& from, const std::string& to)
{
    std::ofstream out(to, std::ios::binary);
    return readBlocks(from, [&](const char* bytes, std::streamsize count) { out.write(bytes, count); }) &&
           out.flush().good();
}

/// Reads all points of a LAS or LAZ file on all processors and hands batch after batch to `use`.
template <typename Use>
bool readPoints(const std::string& path, const Use& use)
{
    std::unique_ptr<VelBrx::PointSource> points;
    VelBrx::Status status = VelBrx::openPointSource(path, points);
    if (!status) return isDone(status);
    VelBrx::ParallelRun run(0, nullptr, nullptr);
    return isDone(run.forEach(points->partCount(), [&](size_t part) {
        return points->readPart(part, [&](const VelBrx::PointBatch& batch) {
            use(points->file(), batch);
            return VelBrx::Status();
        });
    }));
}

bool decode(const std::string& survey)
{
    return readPoints(survey, [](const VelBrx::LasFile&, const VelBrx::PointBatch&) {});
}

bool encode(const std::string& survey)
{
    std::unique_ptr<VelBrx::PointSource> points;
    if (!isDone(VelBrx::openPointSource(survey, points))) return false;
    const VelBrx::LasFile& head = points->file();
    VelBrx::LazChunkEncoders encoders(VelBrx::makeLazItems(head.pointFormat, head.recordLength));
    return readPoints(survey, [&](const VelBrx::LasFile& file, const VelBrx::PointBatch& batch) {
        std::vector<uint8_t> chunk;
        encoders.encode(batch.records.data(), batch.records.size() / file.recordLength, chunk);
    });
}

/// Work on a store and the least that it could do.
struct Work
{
    const char* name;
    std::function<bool()> ours;
    std::function<bool()> limit;
};

/// Of several runs the one whose time of the processor is the median.
Cost median(std::vector<Cost> costs)
{
    std::sort(costs.begin(), costs.end(),
              [](const Cost& a, const Cost& b) { return a.cpuSeconds < b.cpuSeconds; });
    return costs[costs.size() / 2];
}

Row measureBoth(const Work& work, uint64_t points)
{
    std::vector<Cost> ours;
    std::vector<Cost> limits;
    for (int run = 0; run < kRuns; ++run) {
        ours.push_back(measure(work.ours));
        limits.push_back(measure(work.limit));
    }
    const Cost own = median(ours);
    const Cost limit = median(limits);
    const auto million = static_cast<double>(points) / 1e6;
    return {{"million points", million},
            {"million/s", million / own.wallSeconds},
            {"limit", million / limit.wallSeconds},
            {"ratio", limit.wallSeconds / own.wallSeconds},
            {"CPU us a point", own.cpuSeconds / million},
            {"limit's", limit.cpuSeconds / million},
            {"ratio of CPU", limit.cpuSeconds / own.cpuSeconds},
            {"peak MB", own.peakMegabytes},
            {"written MB", own.writtenBytes / 1e6}};
}

void writeSurvey(const std::string& path, uint64_t points)
{
    VelBrx::SampleOptions sample;
    sample.output = path;
    sample.points = points;
    if (const VelBrx::Status status = writeSampleSurvey(sample); !status)
        throw std::runtime_error(status.message());
}

/// Calls `use` with a name and a row for each work, or for the one that `only` names.
void compare(uint64_t points, const std::string& only,
             const std::function<void(const char*, const Row&)>& use)
{
    const TempFolder folder;
    const std::string las = folder.file("survey.las");
    const std::string laz = folder.file("survey.laz");
    const std::string store = folder.file("survey.brx");
    const std::string out = folder.file("out.las");
    const std::string outLaz = folder.file("out.laz");
    writeSurvey(las, points);
    writeSurvey(laz, points);
    if (!build(las, store)) throw std::runtime_error("no store to work on");
    const Work works[] = {
        {"build", [&] { return build(las, out); }, [&] { return copy(las, out); }},
        {"build from LAZ", [&] { return build(laz, out); }, [&] { return decode(laz); }},
        {"verify", [&] { return VelBrx::verifyStore(store).empty(); }, [&] { return readAll(store); }},
        {"export to LAS", [&] { return exportTo(out, store); }, [&] { return copy(store, out); }},
        {"export to LAZ", [&] { return exportTo(outLaz, store); }, [&] { return encode(las); }},
    };
    for (const Work& work : works)
        if (only.empty() || only == work.name) use(work.name, measureBoth(work, points));
}

void printRow(const char* name, const Row& row, bool isFirst)
{
    if (isFirst) {
        std::printf("%-14s", "");
        for (const auto& [column, value] : row.items())
            std::printf("%16s", column.c_str());
        std::printf("\n");
    }
    std::printf("%-14s", name);
    for (const auto& [column, value] : row.items())
        std::printf("%16.3f", value.get<double>());
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
try {
    std::vector<uint64_t> sizes;
    std::string only;
    bool json = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) json = true;
        if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc) only = argv[++i];
        if (const uint64_t points = std::strtoull(argv[i], nullptr, 10)) sizes.push_back(points);
    }
    if (sizes.empty()) sizes.push_back(10'000'000);
    Row rows = Row::array();
    for (const uint64_t points : sizes)
        compare(points, only, [&](const char* name, const Row& row) {
            if (!json) printRow(name, row, rows.empty());
            Row named = {{"work", name}};
            named.update(row);
            rows.push_back(named);
        });
    if (json) std::printf("%s\n", rows.dump(2).c_str());
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_build: %s\n", error.what());
    return 1;
}
