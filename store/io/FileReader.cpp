#include "store/io/FileReader.h"

#include "store/io/IdentifyFile.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VelBrx {

FileReader::~FileReader()
{
    if (_descriptor >= 0) ::close(_descriptor);
}

Status FileReader::open(const std::string& path, Access access)
{
    // Without O_NONBLOCK the open of a pipe would wait for its writer.
    constexpr int kFlags = O_CLOEXEC | O_NONBLOCK;
    if (access == Access::WRITE_WHERE_PERMITTED) _descriptor = ::open(path.c_str(), O_RDWR | kFlags);
    _writable = _descriptor >= 0;
    if (!_writable) _descriptor = ::open(path.c_str(), O_RDONLY | kFlags);
    if (_descriptor < 0) {
        const bool isFull = errno == EMFILE || errno == ENFILE;
        const std::string reason = std::generic_category().message(errno);
        return Status::failure(
            "cannot be opened (" + reason + "); " +
            (isFull ? "close other files or allow more (ulimit -n)" : "check its name and permissions"));
    }

    struct stat status
    {
    };
    if (fstat(_descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return Status::failure("is not a regular file; name a file");
    constexpr int64_t kNanoseconds = 1'000'000'000;
    _state = {identifyFile(_descriptor), status.st_size,
              status.st_mtim.tv_sec * kNanoseconds + status.st_mtim.tv_nsec};
    return {};
}

bool FileReader::read(int64_t offset, void* bytes, size_t length) const
{
    auto* target = static_cast<uint8_t*>(bytes);
    while (length > 0) {
        const ssize_t count = pread(_descriptor, target, length, offset);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        target += count;
        offset += count;
        length -= static_cast<size_t>(count);
    }
    return true;
}

} // namespace VelBrx
