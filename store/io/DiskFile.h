#pragma once

#include <VelBrx/Status.h>

#include <cstdint>
#include <string>

namespace VelBrx {

/// A failure for an error number of the system: `what`, what the system says, and what helps where a disk is
/// full.
Status systemFailure(const std::string& what, int error);

/// The folder of a file's path.
std::string folderOf(const std::string& path);

/// A number of bytes for people, rounded up.
std::string megabytes(uint64_t bytes);

/// An open file that is written and read at any position, by any thread. Owns the descriptor.
class DiskFile
{
public:
    DiskFile() = default;
    ~DiskFile();
    DiskFile(const DiskFile&) = delete;
    DiskFile& operator=(const DiskFile&) = delete;

    /// Takes `descriptor`, once per object. Failures name `path`.
    void take(int descriptor, const std::string& path);

    int descriptor() const { return _descriptor; }

    /// Makes sure of `size` bytes on the disk, where the file system can.
    Status reserve(uint64_t size);
    Status write(uint64_t position, const void* data, uint64_t length);
    Status read(uint64_t position, void* data, uint64_t length) const;

    /// Gives back memory and disk space of bytes that are not read again, where the file system can.
    void discard(uint64_t position, uint64_t length);

    /// Brings the bytes, and what is needed to find them, to the disk.
    Status sync();

    /// Cuts the file behind `size` bytes.
    Status cut(uint64_t size);

    /// Brings the bytes to the disk and closes the file, where that is not done yet.
    Status close();

private:
    Status failure(const std::string& what, int error) const;

    int _descriptor = -1;
    std::string _path;
};

} // namespace VelBrx
