#include "store/io/DiskFile.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace VelBrx {

Status systemFailure(const std::string& what, int error)
{
    const std::string text = what + ": " + std::generic_category().message(error);
    if (error != ENOSPC && error != EDQUOT) return Status::failure(text);
    return Status::failure(text + "; free some space or choose another folder", Status::Kind::NO_SPACE);
}

std::string folderOf(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string megabytes(uint64_t bytes)
{
    return std::to_string(bytes / 1000000 + 1) + " MB";
}

DiskFile::~DiskFile()
{
    if (_descriptor >= 0) ::close(_descriptor);
}

void DiskFile::take(int descriptor, const std::string& path)
{
    _descriptor = descriptor;
    _path = path;
}

Status DiskFile::failure(const std::string& what, int error) const
{
    return systemFailure(_path + ": " + what, error);
}

Status DiskFile::reserve(uint64_t size)
{
    if (size == 0) return {};
    // File systems that cannot reserve report it; then a full disk shows while writing.
    if (fallocate(_descriptor, 0, 0, static_cast<off_t>(size)) != 0 && errno != EOPNOTSUPP && errno != ENOSYS)
        return failure("cannot be given " + megabytes(size) + " of disk space", errno);
    return {};
}

Status DiskFile::write(uint64_t position, const void* data, uint64_t length)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (length > 0) {
        const ssize_t count = pwrite(_descriptor, bytes, length, static_cast<off_t>(position));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return failure("cannot be written", count == 0 ? EIO : errno);
        bytes += count;
        position += static_cast<uint64_t>(count);
        length -= static_cast<uint64_t>(count);
    }
    return {};
}

Status DiskFile::read(uint64_t position, void* data, uint64_t length) const
{
    auto* bytes = static_cast<uint8_t*>(data);
    while (length > 0) {
        const ssize_t count = pread(_descriptor, bytes, length, static_cast<off_t>(position));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return failure("cannot be read again", count == 0 ? EIO : errno);
        bytes += count;
        position += static_cast<uint64_t>(count);
        length -= static_cast<uint64_t>(count);
    }
    return {};
}

void DiskFile::discard(uint64_t position, uint64_t length)
{
    fallocate(_descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(position),
              static_cast<off_t>(length));
}

Status DiskFile::sync()
{
    return fdatasync(_descriptor) == 0 ? Status() : failure("cannot be written", errno);
}

Status DiskFile::cut(uint64_t size)
{
    return ftruncate(_descriptor, static_cast<off_t>(size)) == 0 ? Status() : failure("cannot be cut", errno);
}

Status DiskFile::close()
{
    if (_descriptor < 0) return {};
    const bool isSafe = fsync(_descriptor) == 0 && ::close(std::exchange(_descriptor, -1)) == 0;
    return isSafe ? Status() : failure("cannot be written", errno);
}

} // namespace VelBrx
