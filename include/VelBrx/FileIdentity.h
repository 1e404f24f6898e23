#pragma once

#include <cstdint>
#include <tuple>

namespace VelBrx {

/// Which file on disk it is, whatever name it was opened by: the names of one file (hard and symbolic links,
/// relative and absolute paths) give the same identity, a copy has one of its own.
struct FileIdentity
{
    uint64_t device = 0; ///< as `stat` numbers it
    uint64_t inode = 0;

    /// When the file was made, nanoseconds since 1970: it distinguishes a file from one that was removed and
    /// left it its inode. 0 where the file system does not keep it.
    int64_t birth = 0;

    bool operator==(const FileIdentity& other) const
    {
        return device == other.device && inode == other.inode && birth == other.birth;
    }
    bool operator!=(const FileIdentity& other) const { return !(*this == other); }

    /// Any order, for maps.
    bool operator<(const FileIdentity& other) const
    {
        return std::tie(device, inode, birth) < std::tie(other.device, other.inode, other.birth);
    }
};

} // namespace VelBrx
