#include "store/io/EditLock.h"

#include "store/io/UserName.h"

#include <VelThreads/Mutex.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>
#include <utility>

#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace VelBrx {

namespace {

constexpr size_t kPage = 1;

/// The locks of this process.
struct Locks
{
    VelThreads::Mutex mutex;
    std::map<std::pair<dev_t, ino_t>, std::weak_ptr<EditLock>> held VEL_GUARDED_BY(mutex);
};

Locks& locks()
{
    static Locks all;
    return all;
}

/// "anna, process 4711 (brxview)"
std::string describe(long process)
{
    const std::string folder = "/proc/" + std::to_string(process);
    std::string who;
    struct stat status
    {
    };
    if (stat(folder.c_str(), &status) == 0) who = userName(status.st_uid) + ", ";
    who += "process " + std::to_string(process);
    std::string program;
    if (std::getline(std::ifstream(folder + "/comm"), program)) who += " (" + program + ")";
    return who;
}

/// Who has a file locked. Lines of the system's list are such as
/// "1: FLOCK  ADVISORY  WRITE 4711 fe:00:10952707 0 EOF".
std::string findHolder(const struct stat& file)
{
    std::ifstream list("/proc/locks");
    std::string ofSameNumber;
    for (std::string line; std::getline(list, line);) {
        long process = 0;
        unsigned major = 0;
        unsigned minor = 0;
        unsigned long long inode = 0;
        if (std::sscanf(line.c_str(), "%*d: FLOCK %*s WRITE %ld %x:%x:%llu", &process, &major, &minor,
                        &inode) != 4 ||
            inode != file.st_ino || process <= 0)
            continue;
        if (makedev(major, minor) == file.st_dev) return describe(process);
        ofSameNumber = describe(process); // some file systems list another device than files say
    }
    return ofSameNumber.empty() ? "a program on another computer or in another container" : ofSameNumber;
}

} // namespace

std::shared_ptr<EditLock> EditLock::acquire(int descriptor, bool evenSo, Status& status)
{
    struct stat file
    {
    };
    if (fstat(descriptor, &file) != 0) {
        status = Status::failure("cannot be asked for its place on the disk; try again");
        return nullptr;
    }
    const std::shared_ptr<EditLock> lock(new EditLock); // nothing may be thrown once the file is locked
    const VelThreads::Lock guard(locks().mutex);
    std::weak_ptr<EditLock>& entry = locks().held[{file.st_dev, file.st_ino}];
    if (std::shared_ptr<EditLock> held = entry.lock()) return held;

    const bool isTaken = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (isTaken && !evenSo) {
        status = Status::failure("is being edited by " + findHolder(file) +
                                     "; have it closed there, or choose to edit all the same",
                                 Status::Kind::IN_USE);
        return nullptr;
    }
    void* const page = mmap(nullptr, kPage, PROT_READ, MAP_SHARED, descriptor, 0);
    if (page != MAP_FAILED) lock->_page = page;
    entry = lock;
    return lock;
}

EditLock::~EditLock()
{
    if (_page) munmap(_page, kPage);
}

} // namespace VelBrx
