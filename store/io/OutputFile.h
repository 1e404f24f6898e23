#pragma once

#include "store/io/DiskFile.h"

#include <cstdint>
#include <string>

namespace VelBrx {

/// Brings the names of the files in `folder` to the disk.
void syncFolder(const std::string& folder);

/// A file that appears under its name only when it is complete. Until `commit` it has a temporary name next
/// to that one; without `commit` it vanishes with this object. A process that is killed leaves it behind
/// under the temporary name, and the next file of the same name takes it away. `write` may be called from any
/// thread.
class OutputFile
{
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Whether a file may be made at `path`: it does not exist or `overwrite` is set, and its folder exists.
    static Status check(const std::string& path, bool overwrite);

    /// Whether the disk of `path` has room for `size` more bytes.
    static Status checkSpace(const std::string& path, uint64_t size);

    /// Takes away what killed processes left of files that were to be at `path`.
    static void removeLeftovers(const std::string& path);

    /// Makes the file and reserves `size` bytes on the disk. Call once.
    Status create(const std::string& path, bool overwrite, uint64_t size);

    /// The file under its temporary name; empty while there is none.
    const std::string& temporaryPath() const { return _temporaryPath; }

    Status write(uint64_t position, const void* data, uint64_t length)
    {
        return _file.write(position, data, length);
    }

    /// For those who write to a file whatever becomes of it.
    DiskFile& disk() { return _file; }

    /// Brings the bytes to the disk; after it only `commit` follows.
    Status close() { return _file.close(); }

    /// Brings the bytes to the disk and gives the file its name.
    Status commit();

private:
    std::string _path;
    std::string _temporaryPath; ///< empty while there is no file
    bool _overwrite = false;
    DiskFile _file;
};

} // namespace VelBrx
