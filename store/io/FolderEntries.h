#pragma once

#include <cerrno>
#include <memory>
#include <string>

#include <dirent.h>

namespace VelBrx {

/// Calls `visit(name, type)` for each entry of a folder but "." and "..", in no fixed order; `type` is
/// DT_DIR, DT_REG, DT_LNK, or DT_UNKNOWN of file systems that do not tell. The error of the system that kept
/// it from seeing all, 0 for none. Unlike std::filesystem's iterators it leaves the caller alive where memory
/// runs out: they end the process from within.
template <typename Visit>
int visitEntries(const std::string& folder, const Visit& visit)
{
    const auto close = [](DIR* open) { closedir(open); };
    const std::unique_ptr<DIR, decltype(close)> listing(opendir(folder.c_str()), close);
    if (!listing) return errno;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(listing.get());
        if (!entry) return errno;
        const std::string name = entry->d_name;
        if (name != "." && name != "..") visit(name, entry->d_type);
    }
}

} // namespace VelBrx
