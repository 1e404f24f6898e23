// Preloaded into a program: a disk on which one page of a file cannot be read, neither by calls nor by a
// mapping. VELBRX_FAILING_FILE is the file, VELBRX_FAILING_AT the first byte of the page.

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr off_t kPage = 4096;

template <class Function>
Function* systemCall(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Where the page begins in a file that is open; -1: in another one.
off_t failingPage(int descriptor)
{
    static const char* const path = std::getenv("VELBRX_FAILING_FILE");
    static const char* const at = std::getenv("VELBRX_FAILING_AT");
    struct stat wanted = {};
    struct stat open = {};
    const bool isIt = path && at && stat(path, &wanted) == 0 && fstat(descriptor, &open) == 0 &&
                      wanted.st_ino == open.st_ino && wanted.st_dev == open.st_dev;
    return isIt ? std::atoll(at) / kPage * kPage : -1;
}

} // namespace

extern "C" ssize_t pread(int descriptor, void* bytes, size_t length, off_t offset)
{
    static auto* const call = systemCall<decltype(pread)>("pread");
    const off_t page = failingPage(descriptor);
    const off_t end = offset + static_cast<off_t>(length);
    if (page < 0 || end <= page || offset >= page + kPage) return call(descriptor, bytes, length, offset);
    if (offset < page) return call(descriptor, bytes, static_cast<size_t>(page - offset), offset);
    errno = EIO;
    return -1;
}

extern "C" void* mmap(void* at, size_t length, int protection, int flags, int descriptor, off_t offset)
{
    static auto* const call = systemCall<decltype(mmap)>("mmap");
    void* const memory = call(at, length, protection, flags, descriptor, offset);
    const off_t page = descriptor < 0 || memory == MAP_FAILED ? -1 : failingPage(descriptor);
    if (page < offset || page >= offset + static_cast<off_t>(length)) return memory;
    const int empty = memfd_create("no bytes", MFD_CLOEXEC); // behind whose end nothing can be read
    call(static_cast<char*>(memory) + (page - offset), kPage, protection, MAP_SHARED | MAP_FIXED, empty, 0);
    close(empty);
    return memory;
}
