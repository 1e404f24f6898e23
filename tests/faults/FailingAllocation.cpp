#include "tests/faults/FailingAllocation.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
std::atomic<int64_t> left{kNever}; ///< allocations until the one that fails

} // namespace

FailingAllocation::FailingAllocation(int64_t succeeding)
{
    left = succeeding;
}

FailingAllocation::~FailingAllocation()
{
    left = kNever;
}

bool FailingAllocation::hasFailed() const
{
    return left < 0;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return left-- == 0 ? nullptr : std::malloc(size ? size : 1);
}

void* operator new(size_t size)
{
    if (void* const memory = operator new(size, std::nothrow)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}
