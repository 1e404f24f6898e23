#include "store/build/OutputFile.h"

#include <atomic>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace VelBrx {

namespace {

std::string reasonOf(int error)
{
    return std::generic_category().message(error);
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

/// Brings the name of a file in `folder` to the disk.
void syncFolder(const std::string& folder)
{
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    fsync(descriptor);
    ::close(descriptor);
}

} // namespace

OutputFile::~OutputFile()
{
    if (_descriptor >= 0) ::close(_descriptor);
    if (!_temporaryPath.empty()) unlink(_temporaryPath.c_str());
}

Status OutputFile::failure(const std::string& what) const
{
    return Status::failure(_path + ": " + what);
}

Status OutputFile::check(const std::string& path, bool overwrite)
{
    struct stat status
    {
    };
    if (lstat(path.c_str(), &status) == 0) {
        if (!overwrite) return Status::failure(path + ": exists already; use --force to replace it");
        if (!S_ISREG(status.st_mode)) return Status::failure(path + ": is not a file and cannot be replaced");
    }
    if (path.empty() || path.back() == '/') return Status::failure(path + ": is no name for a file");
    if (access(folderOf(path).c_str(), W_OK) != 0)
        return Status::failure(path + ": no file can be made in its folder: " + reasonOf(errno));
    return {};
}

Status OutputFile::create(const std::string& path, bool overwrite, uint64_t size)
{
    _path = path;
    _overwrite = overwrite;
    if (Status status = check(path, overwrite); !status) return status;
    static std::atomic<unsigned> counter{0};
    const std::string temporary =
        path + "." + std::to_string(getpid()) + "-" + std::to_string(counter++) + ".part";
    _descriptor = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (_descriptor < 0) return failure("cannot be made: " + reasonOf(errno));
    _temporaryPath = temporary;
    return reserve(size);
}

Status OutputFile::checkSpace(const std::string& path, uint64_t size)
{
    struct statvfs disk
    {
    };
    if (statvfs(folderOf(path).c_str(), &disk) != 0) return {};
    const uint64_t available = uint64_t{disk.f_bavail} * disk.f_frsize;
    if (available >= size) return {};
    return Status::failure(path + ": needs " + megabytes(size) + " of disk space, " + megabytes(available) +
                           " are free; free some or choose another folder");
}

Status OutputFile::reserve(uint64_t size)
{
    if (Status status = checkSpace(_path, size); !status) return status;
    // File systems that cannot reserve report it; then a full disk shows while writing.
    if (fallocate(_descriptor, 0, 0, static_cast<off_t>(size)) != 0 && errno != EOPNOTSUPP && errno != ENOSYS)
        return failure("cannot be given " + megabytes(size) + " of disk space: " + reasonOf(errno));
    return {};
}

Status OutputFile::write(uint64_t position, const void* data, uint64_t length)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (length > 0) {
        const ssize_t count = pwrite(_descriptor, bytes, length, static_cast<off_t>(position));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return failure("cannot be written: " + reasonOf(count == 0 ? EIO : errno));
        bytes += count;
        position += static_cast<uint64_t>(count);
        length -= static_cast<uint64_t>(count);
    }
    return {};
}

Status OutputFile::close()
{
    if (_descriptor < 0) return {};
    if (fsync(_descriptor) != 0) return failure("cannot be written: " + reasonOf(errno));
    const int descriptor = _descriptor;
    _descriptor = -1;
    if (::close(descriptor) != 0) return failure("cannot be written: " + reasonOf(errno));
    return {};
}

Status OutputFile::commit()
{
    if (Status status = close(); !status) return status;
    // A file that appeared meanwhile is not replaced where the system can tell.
    int result = _overwrite
                     ? rename(_temporaryPath.c_str(), _path.c_str())
                     : renameat2(AT_FDCWD, _temporaryPath.c_str(), AT_FDCWD, _path.c_str(), RENAME_NOREPLACE);
    if (result != 0 && !_overwrite && (errno == EINVAL || errno == ENOSYS)) {
        if (Status status = check(_path, false); !status) return status;
        result = rename(_temporaryPath.c_str(), _path.c_str());
    }
    if (result != 0) return failure("cannot be given its name: " + reasonOf(errno));
    _temporaryPath.clear();
    syncFolder(folderOf(_path));
    return {};
}

} // namespace VelBrx
