#pragma once

#include <VelBrx/Status.h>

#include <cstdint>
#include <string>

namespace VelBrx {

/// A file without a name, gone with this object or with the program. `write` and `read` may be called from
/// any thread.
class TemporaryFile
{
public:
    TemporaryFile() = default;
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// Makes the file on the disk of `folder` and reserves `size` bytes. Call once.
    Status create(const std::string& folder, uint64_t size);

    Status write(uint64_t position, const void* data, uint64_t length);
    Status read(uint64_t position, void* data, uint64_t length) const;

private:
    Status failure(const std::string& what) const;

    std::string _folder;
    int _descriptor = -1;
};

} // namespace VelBrx
