#include "store/PointScan.h"

#include "store/las/LasLayout.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

namespace VelBrx {

namespace {

constexpr int64_t kBlockPoints = 16384; // 576 KiB of records, which stay in a core's cache

class Scan
{
public:
    Scan(const FileReader& file, int64_t pointDataStart, const std::vector<PointRun>& runs,
         const RunVisitor& visit)
        : _file(file), _pointDataStart(pointDataStart), _runs(runs), _visit(visit),
          _begin(runs.empty() ? 0 : runs.front().first),
          _end(runs.empty() ? 0 : runs.back().first + runs.back().count)
    {
    }

    bool failed() const { return _failed; }

    /// Takes blocks until none is left.
    void work(unsigned worker, std::vector<uint8_t>& buffer)
    {
        while (!_failed) {
            const int64_t block = _nextBlock++;
            if (block > (_end - _begin) / kBlockPoints) return;
            const int64_t first = _begin + block * kBlockPoints;
            const int64_t end = std::min(first + kBlockPoints, _end);
            if (first < end && !readBlock(worker, first, end, buffer)) _failed = true;
        }
    }

private:
    bool readBlock(unsigned worker, int64_t first, int64_t end, std::vector<uint8_t>& buffer)
    {
        constexpr int64_t kSize = LasLayout::kPointSize;
        if (!_file.read(_pointDataStart + first * kSize, buffer.data(),
                        static_cast<size_t>((end - first) * kSize)))
            return false;
        const auto endsBefore = [](const PointRun& run, int64_t point) {
            return run.first + run.count <= point;
        };
        auto run = std::lower_bound(_runs.begin(), _runs.end(), first, endsBefore);
        for (; run != _runs.end() && run->first < end; ++run) {
            const int64_t partFirst = std::max(run->first, first);
            const int64_t partEnd = std::min(run->first + run->count, end);
            _visit(worker, {partFirst, partEnd - partFirst, run->owner},
                   buffer.data() + (partFirst - first) * kSize);
        }
        return true;
    }

    const FileReader& _file;
    const int64_t _pointDataStart;
    const std::vector<PointRun>& _runs;
    const RunVisitor& _visit;
    const int64_t _begin;
    const int64_t _end;
    std::atomic<int64_t> _nextBlock{0};
    std::atomic<bool> _failed{false};
};

} // namespace

unsigned scanWorkers()
{
    return std::max(1u, std::thread::hardware_concurrency());
}

bool scanPoints(const FileReader& file, int64_t pointDataStart, const std::vector<PointRun>& runs,
                const RunVisitor& visit)
{
    Scan scan(file, pointDataStart, runs, visit);
    std::vector<std::vector<uint8_t>> buffers(scanWorkers());
    for (auto& buffer : buffers)
        buffer.resize(static_cast<size_t>(kBlockPoints) * LasLayout::kPointSize);

    std::vector<std::thread> threads;
    threads.reserve(buffers.size());
    try {
        for (unsigned worker = 1; worker < buffers.size(); ++worker)
            threads.emplace_back([&, worker] { scan.work(worker, buffers[worker]); });
    } catch (const std::system_error&) {
        // The system gives no more threads: those that run, and this one, do the work.
    }
    scan.work(0, buffers[0]);
    for (std::thread& thread : threads)
        thread.join();
    return !scan.failed();
}

} // namespace VelBrx
