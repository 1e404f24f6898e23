#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

/// Prints, for each pair of benchmarks "NAME/ours" and "NAME/limit", their median rates and the ratio between
/// them. The limit is what this machine does at this moment, measured in the same run: a rate alone says
/// nothing on another or a busy machine.
class RatioReporter : public benchmark::BenchmarkReporter
{
public:
    explicit RatioReporter(bool json) : _json(json) {}

    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    struct Pair
    {
        std::vector<double> ours; ///< items per second, one a repetition
        std::vector<double> limit;
    };

    const bool _json;
    std::map<std::string, Pair> _pairs;
};

/// The main function of every benchmark program: runs what is registered and prints the table, or with
/// `--json` a JSON array. Google Benchmark's own options hold.
int runBenchmarks(int argc, char** argv);
