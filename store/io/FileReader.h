#pragma once

#include <VelBrx/FileIdentity.h>
#include <VelBrx/Status.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace VelBrx {

/// Tells what a file holds from what it held before: another state is another content.
struct FileState
{
    FileIdentity identity;
    int64_t size = 0;
    int64_t modified = 0; ///< nanoseconds since 1970

    bool operator==(const FileState& other) const
    {
        return identity == other.identity && size == other.size && modified == other.modified;
    }
};

/// A regular file open for reading at any position. Reads by system call, not by mapping, so a file that is
/// cut while it is read gives a failed read and not a bus error. Any number of threads may read at once.
class FileReader
{
public:
    FileReader() = default;
    ~FileReader();
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    enum class Access
    {
        READ,
        WRITE_WHERE_PERMITTED ///< for the mapping that `File` makes of the descriptor
    };

    /// Opens `path`, once per object. Directories, pipes and devices are refused. The message of a failure
    /// does not hold the path.
    Status open(const std::string& path, Access access = Access::READ);

    int descriptor() const { return _descriptor; }

    /// The descriptor is open for writing too.
    bool isWritable() const { return _writable; }

    /// Size when it was opened.
    int64_t size() const { return _state.size; }

    const FileIdentity& identity() const { return _state.identity; }

    /// As it was when it was opened.
    const FileState& state() const { return _state; }

    /// Whether [offset, offset + length) lies inside the file.
    bool contains(int64_t offset, int64_t length) const
    {
        return offset >= 0 && length >= 0 && offset <= size() && length <= size() - offset;
    }

    /// Fills `bytes` with the range [offset, offset + length). False when it is not wholly there.
    bool read(int64_t offset, void* bytes, size_t length) const;

private:
    int _descriptor = -1;
    bool _writable = false;
    FileState _state;
};

} // namespace VelBrx
