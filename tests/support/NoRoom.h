#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include <signal.h>
#include <sys/resource.h>

/// Appends a hole to a file: what is written into its mapping could then find no room on the disk.
inline void appendHole(const std::string& path)
{
    std::filesystem::resize_file(path, std::filesystem::file_size(path) + (1 << 20));
}

/// While it lives, files take no bytes at or behind a place.
class NoRoom
{
public:
    explicit NoRoom(uint64_t behind)
    {
        getrlimit(RLIMIT_FSIZE, &_before);
        _handler = signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{behind, _before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    NoRoom(const NoRoom&) = delete;
    NoRoom& operator=(const NoRoom&) = delete;

    ~NoRoom()
    {
        setrlimit(RLIMIT_FSIZE, &_before);
        signal(SIGXFSZ, _handler);
    }

private:
    rlimit _before{};
    void (*_handler)(int) = nullptr;
};
