#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

/// Prints, for each pair of benchmarks "NAME/ours" and "NAME/limit", their median rates (on the clock where
/// the benchmarks use real time, of the processor where not), the ratio between them, and that of the rates
/// by processor time of the process, which other work disturbs less. The limit is what this machine does at
/// this moment, measured in the same run: a rate alone says nothing on another or a busy machine. Benchmarks
/// are to measure the time of the process.
class RatioReporter : public benchmark::BenchmarkReporter
{
public:
    explicit RatioReporter(bool json) : _json(json) {}

    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    /// Items per second, one a repetition.
    struct Rates
    {
        std::vector<double> stated;
        std::vector<double> ofProcessor;
    };
    struct Pair
    {
        Rates ours;
        Rates limit;
    };

    const bool _json;
    std::map<std::string, Pair> _pairs;
};

/// The main function of every benchmark program: runs what is registered and prints the table, or with
/// `--json` a JSON array. Google Benchmark's own options hold.
int runBenchmarks(int argc, char** argv);
