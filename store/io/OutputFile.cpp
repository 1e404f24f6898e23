#include "store/io/OutputFile.h"

#include "store/io/FolderEntries.h"

#include <atomic>
#include <cerrno>
#include <filesystem>

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace VelBrx {

namespace fs = std::filesystem;

namespace {

constexpr char kTemporaryEnding[] = ".part";

/// Removes a temporary file when no process holds the lock that its maker takes.
void removeUnlocked(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return;
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
    ::close(descriptor);
}

/// Locks the file at `path`; false where a process that takes leftovers away was quicker.
bool lockTemporary(int descriptor, const std::string& path)
{
    flock(descriptor, LOCK_EX);
    return access(path.c_str(), F_OK) == 0;
}

/// Whether `name` is `stem` with "." digits "-" digits ".part" behind it.
bool isTemporaryOf(const std::string& name, const std::string& stem)
{
    const size_t ending = sizeof kTemporaryEnding - 1;
    if (name.size() <= stem.size() + 1 + ending || name.compare(0, stem.size(), stem) != 0 ||
        name[stem.size()] != '.' || name.compare(name.size() - ending, ending, kTemporaryEnding) != 0)
        return false;
    const std::string middle = name.substr(stem.size() + 1, name.size() - ending - stem.size() - 1);
    return middle.find_first_not_of("0123456789-") == std::string::npos;
}

} // namespace

void syncFolder(const std::string& folder)
{
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    fsync(descriptor);
    ::close(descriptor);
}

OutputFile::~OutputFile()
{
    if (!_temporaryPath.empty()) unlink(_temporaryPath.c_str());
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
        return systemFailure(path + ": no file can be made in its folder", errno);
    return {};
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
                               " are free; free some or choose another folder",
                           Status::Kind::NO_SPACE);
}

void OutputFile::removeLeftovers(const std::string& path)
{
    const std::string stem = fs::path(path).filename();
    const std::string folder = folderOf(path);
    (void)visitEntries(folder, [&](const std::string& name, int) { // what is not seen stays for the next
        if (isTemporaryOf(name, stem)) removeUnlocked(folder + "/" + name);
    });
}

Status OutputFile::create(const std::string& path, bool overwrite, uint64_t size)
{
    _path = path;
    _overwrite = overwrite;
    if (Status status = check(path, overwrite); !status) return status;
    removeLeftovers(path);
    static std::atomic<unsigned> counter{0};
    int descriptor = -1;
    do {
        if (descriptor >= 0) ::close(descriptor);
        _temporaryPath =
            path + "." + std::to_string(getpid()) + "-" + std::to_string(counter++) + kTemporaryEnding;
        descriptor = open(_temporaryPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor < 0) {
            const int error = errno;
            _temporaryPath.clear();
            return systemFailure(path + ": cannot be made", error);
        }
    } while (!lockTemporary(descriptor, _temporaryPath));
    _file.take(descriptor, path);
    if (Status status = checkSpace(path, size); !status) return status;
    return _file.reserve(size);
}

Status OutputFile::commit()
{
    // It stays locked until it has its name: what is not locked is a leftover to others.
    if (_file.descriptor() >= 0)
        if (Status status = _file.sync(); !status) return status;
    const std::string folder = folderOf(_path); // nothing may be thrown once the file has its name
    // A file that appeared meanwhile is not replaced where the system can prevent it.
    int result = _overwrite
                     ? rename(_temporaryPath.c_str(), _path.c_str())
                     : renameat2(AT_FDCWD, _temporaryPath.c_str(), AT_FDCWD, _path.c_str(), RENAME_NOREPLACE);
    if (result != 0 && !_overwrite && (errno == EINVAL || errno == ENOSYS)) {
        if (Status status = check(_path, false); !status) return status;
        result = rename(_temporaryPath.c_str(), _path.c_str());
    }
    if (result != 0) return systemFailure(_path + ": cannot be given its name", errno);
    _temporaryPath.clear();
    syncFolder(folder);
    return _file.close();
}

} // namespace VelBrx
