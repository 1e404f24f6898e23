#include "bench/RatioReporter.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

double median(std::vector<double> values)
{
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double quotient(double ours, double limit)
{
    return limit > 0 ? ours / limit : 0;
}

} // namespace

void RatioReporter::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        if (run.error_occurred) {
            std::cerr << run.benchmark_name() << ": " << run.error_message << '\n';
            continue;
        }
        const auto rate = run.counters.find("items_per_second");
        if (run.run_type != Run::RT_Iteration || rate == run.counters.end()) continue;
        const std::string& name = run.run_name.function_name;
        const size_t slash = name.rfind('/');
        Pair& pair = _pairs[name.substr(0, slash)];
        Rates& rates = name.substr(slash + 1) == "limit" ? pair.limit : pair.ours;
        const bool isOnClock = run.run_name.time_type.find("real_time") != std::string::npos;
        const double clockToProcessor = run.real_accumulated_time / run.cpu_accumulated_time;
        rates.stated.push_back(rate->second.value);
        rates.ofProcessor.push_back(rate->second.value * (isOnClock ? clockToProcessor : 1));
    }
}

void RatioReporter::Finalize()
{
    auto json = nlohmann::ordered_json::array();
    if (!_json) std::printf("%-44s %14s %14s %8s %8s\n", "million a second", "ours", "limit", "ratio", "CPU");
    for (const auto& [name, pair] : _pairs) {
        const double ours = median(pair.ours.stated) / 1e6, limit = median(pair.limit.stated) / 1e6;
        const double ratio = quotient(ours, limit);
        const double cpuRatio = quotient(median(pair.ours.ofProcessor), median(pair.limit.ofProcessor));
        if (_json)
            json.push_back(
                {{"name", name}, {"ours", ours}, {"limit", limit}, {"ratio", ratio}, {"cpuRatio", cpuRatio}});
        else
            std::printf("%-44s %14.1f %14.1f %8.2f %8.2f\n", name.c_str(), ours, limit, ratio, cpuRatio);
    }
    if (_json) std::cout << json.dump(2) << '\n';
}

int runBenchmarks(int argc, char** argv)
{
    // Repetitions of ours and limit take turns, so that what else the machine does falls on both.
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    static char repeat[] = "--benchmark_repetitions=7";
    static char minTime[] = "--benchmark_min_time=0.2";
    std::vector<char*> arguments{argv[0], interleave, repeat, minTime};
    bool json = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0)
            json = true;
        else
            arguments.push_back(argv[i]);
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
    RatioReporter reporter(json);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
