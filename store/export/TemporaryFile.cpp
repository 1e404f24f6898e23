#include "store/export/TemporaryFile.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace VelBrx {

TemporaryFile::~TemporaryFile()
{
    if (_descriptor >= 0) close(_descriptor);
}

Status TemporaryFile::failure(const std::string& what) const
{
    return Status::failure(_folder + ": a temporary file cannot be " + what + ": " +
                           std::generic_category().message(errno));
}

Status TemporaryFile::create(const std::string& folder, uint64_t size)
{
    _folder = folder;
    _descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (_descriptor < 0) { // not every file system has nameless files
        std::string name = folder + "/.brx-XXXXXX";
        _descriptor = mkostemp(name.data(), O_CLOEXEC);
        if (_descriptor < 0) return failure("made");
        unlink(name.c_str());
    }
    if (fallocate(_descriptor, 0, 0, static_cast<off_t>(size)) != 0 && errno != EOPNOTSUPP && errno != ENOSYS)
        return failure("given room");
    return {};
}

Status TemporaryFile::write(uint64_t position, const void* data, uint64_t length)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (length > 0) {
        const ssize_t count = pwrite(_descriptor, bytes, length, static_cast<off_t>(position));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return failure("written");
        bytes += count;
        position += static_cast<uint64_t>(count);
        length -= static_cast<uint64_t>(count);
    }
    return {};
}

Status TemporaryFile::read(uint64_t position, void* data, uint64_t length) const
{
    auto* bytes = static_cast<uint8_t*>(data);
    while (length > 0) {
        const ssize_t count = pread(_descriptor, bytes, length, static_cast<off_t>(position));
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) errno = EIO; // it was written up to here
        if (count <= 0) return failure("read");
        bytes += count;
        position += static_cast<uint64_t>(count);
        length -= static_cast<uint64_t>(count);
    }
    return {};
}

} // namespace VelBrx
