#include "store/io/IdentifyFile.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

namespace VelBrx {

namespace {

/// An overlay of file systems copies a file the first time that it is opened for writing, and gives the time
/// of the copy from then on.
bool keepsBirth(int descriptor)
{
    struct statfs system
    {
    };
    return fstatfs(descriptor, &system) == 0 && system.f_type != OVERLAYFS_SUPER_MAGIC;
}

} // namespace

FileIdentity identifyFile(int descriptor)
{
    FileIdentity identity;
    struct statx extended
    {
    };
    if (statx(descriptor, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &extended) == 0) {
        identity.device = makedev(extended.stx_dev_major, extended.stx_dev_minor);
        identity.inode = extended.stx_ino;
        if ((extended.stx_mask & STATX_BTIME) && keepsBirth(descriptor))
            identity.birth = extended.stx_btime.tv_sec * 1'000'000'000 + extended.stx_btime.tv_nsec;
        return identity;
    }
    struct stat plain
    {
    };
    if (fstat(descriptor, &plain) == 0) {
        identity.device = plain.st_dev;
        identity.inode = plain.st_ino;
    }
    return identity;
}

} // namespace VelBrx
