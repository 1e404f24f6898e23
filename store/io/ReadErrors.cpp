#include <VelBrx/ReadErrors.h>

#include "store/io/MappedRegion.h"

#include <VelBrx/File.h>
#include <VelThreads/Mutex.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace VelBrx {

using Flag = std::atomic<uint8_t>;
static_assert(Flag::is_always_lock_free, "the handler of a signal may use it");

/// Never freed, as the handler may walk over it at any time; used again for another file.
struct Region
{
    std::atomic<uintptr_t> begin{0}; ///< 0: of no file
    std::atomic<size_t> length{0};
    std::atomic<const File*> file{nullptr};
    std::atomic<Flag*> lost{nullptr}; ///< a flag a page; null while none is lost
    Region* next = nullptr;           ///< constant
};

namespace {

const auto kPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));

std::atomic<Region*> regions{nullptr};
std::atomic<bool> anyLost{false};
VelThreads::Mutex regionsMutex; // of those who add regions
struct sigaction handlerBefore;

std::vector<Region*>& freeRegions() VEL_REQUIRES(regionsMutex)
{
    static auto* const free = new std::vector<Region*>; // files may be closed while statics end
    return *free;
}

Region& claimRegion()
{
    const VelThreads::Lock guard(regionsMutex);
    if (!freeRegions().empty()) {
        Region* const region = freeRegions().back();
        freeRegions().pop_back();
        return *region;
    }
    auto* const region = new Region;
    region->next = regions;
    regions = region;
    return *region;
}

size_t pagesOf(const Region& region)
{
    return (region.length + kPage - 1) / kPage;
}

/// The region that holds an address, which does not go away meanwhile; others may.
Region* findRegion(uintptr_t address)
{
    for (Region* region = regions; region; region = region->next) {
        const uintptr_t begin = region->begin;
        const size_t length = region->length;
        if (begin != 0 && address >= begin && address - begin < length && region->begin == begin)
            return region;
    }
    return nullptr;
}

/// The flags of a region's pages, made when the first one is lost.
Flag* flagsOf(Region& region)
{
    if (Flag* const known = region.lost) return known;
    void* const memory = mmap(nullptr, pagesOf(region), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    Flag* known = nullptr;
    if (region.lost.compare_exchange_strong(known, static_cast<Flag*>(memory)))
        return static_cast<Flag*>(memory);
    munmap(memory, pagesOf(region));
    return known;
}

/// Puts zeros in place of a page that cannot be read. Noted first: whoever sees the zeros finds them noted.
bool replacePage(uintptr_t address)
{
    Region* const region = findRegion(address);
    Flag* const flags = region ? flagsOf(*region) : nullptr;
    if (!flags) return false;
    const uintptr_t page = address / kPage * kPage;
    flags[(page - region->begin) / kPage] = 1;
    anyLost = true;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the signal gives an address
    return mmap(reinterpret_cast<void*>(page), kPage, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

void handleBusError(int signal, siginfo_t* info, void* context)
{
    const int error = errno;
    const bool ofMemory =
        info->si_code == BUS_ADRERR || info->si_code == BUS_OBJERR || info->si_code == BUS_MCEERR_AR;
    const bool isMended = ofMemory && replacePage(reinterpret_cast<uintptr_t>(info->si_addr));
    errno = error;
    if (isMended) return;
    if (handlerBefore.sa_flags & SA_SIGINFO)
        handlerBefore.sa_sigaction(signal, info, context);
    else if (handlerBefore.sa_handler != SIG_DFL && handlerBefore.sa_handler != SIG_IGN)
        handlerBefore.sa_handler(signal);
    else {
        std::signal(SIGBUS, SIG_DFL);
        if (!ofMemory) raise(signal); // was sent; an access happens again by itself
    }
}

} // namespace

MappedRegion::MappedRegion(const File& file, void* memory, size_t length) : _region(claimRegion())
{
    _region.file = &file;
    _region.length = length;
    _region.begin = reinterpret_cast<uintptr_t>(memory);
}

MappedRegion::~MappedRegion()
{
    _region.begin = 0;
    _region.file = nullptr;
    if (Flag* const flags = _region.lost.exchange(nullptr)) munmap(flags, pagesOf(_region));
    const VelThreads::Lock guard(regionsMutex);
    freeRegions().push_back(&_region);
}

void surviveReadErrors()
{
    static const bool installed = [] {
        struct sigaction action = {};
        action.sa_sigaction = handleBusError;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        return sigaction(SIGBUS, nullptr, &handlerBefore) == 0 && sigaction(SIGBUS, &action, nullptr) == 0;
    }();
    (void)installed;
}

bool wasRead(const void* memory, int64_t length)
{
    if (!anyLost || length <= 0) return true;
    const auto begin = reinterpret_cast<uintptr_t>(memory);
    const Region* const region = findRegion(begin);
    const Flag* const flags = region ? region->lost.load() : nullptr;
    if (!flags) return true;
    const size_t first = (begin - region->begin) / kPage;
    const size_t last = (begin + static_cast<uintptr_t>(length) - 1 - region->begin) / kPage;
    return std::all_of(flags + first, flags + last + 1, [](const Flag& lost) { return lost == 0; });
}

Status checkReads(const File& file)
{
    for (const Region* region = regions; region; region = region->next) {
        if (region->file != &file) continue;
        if (file.size() < static_cast<int64_t>(region->length))
            return Status::failure("was cut while it was open; restore it from a copy",
                                   Status::Kind::DAMAGED);
        if (region->lost)
            return Status::failure("cannot be read in places; check its disk, or restore it from a copy",
                                   Status::Kind::DAMAGED);
    }
    return {};
}

} // namespace VelBrx
