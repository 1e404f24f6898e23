// bench_build [--json] [POINTS...]: building stores of the synthetic survey, 10 million points when no number
// is given, against copying the survey, which is the least that a build could do. Each build is a process of
// its own, so that its memory is its own. In the folder for temporary files, which needs about five times the
// survey.

#include "tests/support/TempFolder.h"

#include <VelBrx/Builder.h>
#include <VelBrx/SampleSurvey.h>

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

/// Of several runs the one whose wall time is the median.
Cost median(const std::function<bool()>& work)
{
    std::vector<Cost> costs;
    for (int run = 0; run < kRuns; ++run)
        costs.push_back(measure(work));
    std::sort(costs.begin(), costs.end(),
              [](const Cost& a, const Cost& b) { return a.wallSeconds < b.wallSeconds; });
    return costs[kRuns / 2];
}

bool build(const std::string& survey, const std::string& store)
{
    VelBrx::BuildOptions options;
    options.inputs = {survey};
    options.output = store;
    options.overwrite = true;
    VelBrx::BuildReport report;
    const VelBrx::Status status = buildStore(options, report);
    if (!status) std::fprintf(stderr, "bench_build: %s\n", status.message().c_str());
    return status.ok();
}

bool copy(const std::string& from, const std::string& to)
{
    std::vector<char> block(8 << 20);
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())), in.gcount() > 0)
        out.write(block.data(), in.gcount());
    return out.flush().good();
}

nlohmann::ordered_json compare(uint64_t points)
{
    const TempFolder folder;
    VelBrx::SampleOptions sample;
    sample.output = folder.file("survey.las");
    sample.points = points;
    if (const VelBrx::Status status = writeSampleSurvey(sample); !status)
        throw std::runtime_error(status.message());
    const std::string store = folder.file("survey.brx");
    const Cost limit = median([&] { return copy(sample.output, folder.file("copy.las")); });
    std::filesystem::remove(folder.file("copy.las"));
    const Cost ours = median([&] { return build(sample.output, store); });
    const auto million = static_cast<double>(points) / 1e6;
    const auto size = static_cast<double>(std::filesystem::file_size(store));
    return {{"million points", million},
            {"built, million/s", million / ours.wallSeconds},
            {"copied, million/s", million / limit.wallSeconds},
            {"ratio", limit.wallSeconds / ours.wallSeconds},
            {"CPU us a point", ours.cpuSeconds / million},
            {"peak MB", ours.peakMegabytes},
            {"written/store", ours.writtenBytes / size}};
}

void printRow(const nlohmann::ordered_json& row, bool isFirst)
{
    if (isFirst) {
        for (const auto& [name, value] : row.items())
            std::printf("%18s", name.c_str());
        std::printf("\n");
    }
    for (const auto& [name, value] : row.items())
        std::printf("%18.3f", value.get<double>());
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
try {
    std::vector<uint64_t> sizes;
    bool json = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) json = true;
        if (const uint64_t points = std::strtoull(argv[i], nullptr, 10)) sizes.push_back(points);
    }
    if (sizes.empty()) sizes.push_back(10'000'000);
    auto rows = nlohmann::ordered_json::array();
    for (const uint64_t points : sizes) {
        rows.push_back(compare(points));
        if (!json) printRow(rows.back(), rows.size() == 1);
    }
    if (json) std::printf("%s\n", rows.dump(2).c_str());
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_build: %s\n", error.what());
    return 1;
}
