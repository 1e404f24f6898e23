#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>
#include <atomic>

#ifdef _OPENMP
#include <omp.h>
#endif

namespace VelOsgUtils {

namespace {

// Trivially destructible, so that they can be read while static objects are being destroyed.
std::atomic<int> runningThreads{0};
std::atomic<bool> processStopping{false};

struct ExitMark
{
    ~ExitMark() { processStopping = true; }
};

} // namespace

ThreadCount::Scope::Scope()
{
    ++runningThreads;
}

ThreadCount::Scope::~Scope()
{
    --runningThreads;
}

int ThreadCount::running()
{
    return runningThreads;
}

bool ThreadCount::isProcessStopping()
{
    static const ExitMark mark;
    return processStopping;
}

int ThreadCount::halfOfProcessors([[maybe_unused]] int items)
{
#ifdef _OPENMP
    return std::max(1, std::min(items, omp_get_num_procs() / 2));
#else
    return 1;
#endif
}

} // namespace VelOsgUtils
