#pragma once

#include "tests/support/TempFolder.h"

#include <VelBrx/Status.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <unistd.h>

/// Ends the process where something does not hold; the fuzzer then keeps the input.
inline void expect(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

/// A failure says something.
inline bool reported(const VelBrx::Status& status)
{
    expect(status.ok() || !status.message().empty(), "a failure without a word");
    return status.ok();
}

/// A file of changing content, in a folder that ends with the process.
class FuzzFile
{
public:
    explicit FuzzFile(const std::string& name)
        : _path(_folder.file(name)), _descriptor(open(_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        expect(_descriptor >= 0, "no file");
    }
    ~FuzzFile() { close(_descriptor); }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;

    /// Gives the file these bytes, and its path.
    const std::string& put(const uint8_t* data, size_t size) const
    {
        expect(ftruncate(_descriptor, 0) == 0 &&
                   pwrite(_descriptor, data, size, 0) == static_cast<ssize_t>(size),
               "no room");
        return _path;
    }

    const TempFolder& folder() const { return _folder; }

private:
    const TempFolder _folder;
    const std::string _path;
    const int _descriptor;
};
