#pragma once

#include "store/io/DiskFile.h"

#include <string>

namespace VelBrx {

/// Opens a new file without a name on the disk of `folder`; the descriptor is the caller's.
Status openTemporaryFile(const std::string& folder, int& descriptor);

/// A file without a name for what does not fit into memory: it is gone when this object is, or the process,
/// however that ends. `write` and `read` may be called from any thread.
class TemporaryFile
{
public:
    /// Makes the file on the disk of `folder` and reserves `size` bytes. Call once.
    Status create(const std::string& folder, uint64_t size);

    Status write(uint64_t position, const void* data, uint64_t length)
    {
        return _file.write(position, data, length);
    }
    Status read(uint64_t position, void* data, uint64_t length) const
    {
        return _file.read(position, data, length);
    }

    /// Leads to the file as long as this object lives, in this process alone.
    std::string path() const { return "/proc/self/fd/" + std::to_string(_file.descriptor()); }

    /// For those who write to a file whatever becomes of it.
    DiskFile& disk() { return _file; }

    /// Gives back the memory and disk space of bytes that nobody reads again.
    void discard(uint64_t position, uint64_t length) { _file.discard(position, length); }

private:
    DiskFile _file;
};

} // namespace VelBrx
