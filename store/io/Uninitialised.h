#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>

#include <sys/mman.h>

namespace VelBrx {

/// Asks the system for large pages within a block, or to go back to usual ones. It may do neither.
inline void wishLargePages(void* memory, size_t size, bool areWanted)
{
    constexpr uintptr_t kLargePage = 2 << 20;
    const uintptr_t first = (reinterpret_cast<uintptr_t>(memory) + kLargePage - 1) & ~(kLargePage - 1);
    const uintptr_t last = (reinterpret_cast<uintptr_t>(memory) + size) & ~(kLargePage - 1);
    if (first < last)
        madvise(reinterpret_cast<void*>(first), last - first, areWanted ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
}

struct FreeMemory
{
    size_t size = 0;

    void operator()(void* memory) const
    {
        wishLargePages(memory, size, false); // others get the memory next, who touch little of it
        std::free(memory);
    }
};

template <typename T>
using Uninitialised = std::unique_ptr<T[], FreeMemory>;

/// Memory for `count` values that is not touched before it is filled. A large block has large pages where the
/// system has some: values are then found at random places without a walk through page tables each time.
template <typename T>
Uninitialised<T> uninitialised(uint64_t count)
{
    static_assert(std::is_trivially_copyable_v<T> && alignof(T) <= alignof(std::max_align_t),
                  "nothing is constructed");
    const size_t size = count * sizeof(T);
    void* const memory = std::malloc(size ? size : 1);
    if (!memory) throw std::bad_alloc();
    wishLargePages(memory, size, true);
    return Uninitialised<T>(static_cast<T*>(memory), FreeMemory{size});
}

} // namespace VelBrx
