#include <VelBrx/FileWriter.h>

#include <VelBrx/File.h>
#include <VelBrx/ReadErrors.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace VelBrx {

namespace {

/// Whether what is written into the mapped file can find no room on the disk: on file systems that write
/// changed bytes to another place, and in holes. The system ends the process then.
bool mayRunOutOfRoom(int descriptor)
{
    constexpr int64_t kBlock = 512; // of st_blocks
    struct statfs fileSystem
    {
    };
    struct stat file
    {
    };
    if (fstatfs(descriptor, &fileSystem) != 0 || fstat(descriptor, &file) != 0) return true;
    const auto type = static_cast<uint32_t>(fileSystem.f_type);
    constexpr uint32_t kExt = 0xEF53;
    constexpr uint32_t kMemory = 0x01021994;
    return (type != kExt && type != kMemory) || file.st_blocks * kBlock < file.st_size;
}

} // namespace

FileWriter::FileWriter(File& file) : _file(file), _descriptor(file.reopen())
{
    if (_descriptor < 0)
        _problem = "cannot be opened again to be written; it was moved, replaced, or made read-only";
    else
        _storesDirectly = !mayRunOutOfRoom(_descriptor);
}

FileWriter::~FileWriter()
{
    if (_descriptor >= 0) close(_descriptor);
}

std::string FileWriter::problem() const
{
    const VelThreads::Lock guard(_mutex);
    return _problem;
}

bool FileWriter::isOpen() const
{
    return _descriptor >= 0;
}

void FileWriter::note(int error)
{
    const VelThreads::Lock guard(_mutex);
    if (!_problem.empty()) return;
    _problem = "cannot be written (" + std::generic_category().message(error) +
               "); make room or mend the disk, and do it again";
}

/// Whether the file has what was stored into the mapping; a page that cannot be read takes none of it there.
bool FileWriter::reached(const uint8_t* memory, size_t length)
{
    if (wasRead(memory, static_cast<int64_t>(length))) return true;
    note(EIO);
    return false;
}

/// Writes bytes in place of those at `memory`, which `File::map` gave; returns how many were written.
size_t FileWriter::writeOver(const uint8_t* memory, const uint8_t* bytes, size_t length)
{
    const int64_t offset = _file.offsetOf(memory);
    size_t written = 0;
    while (written < length) {
        const ssize_t count =
            pwrite(_descriptor, bytes + written, length - written, offset + static_cast<int64_t>(written));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            note(count < 0 ? errno : ENOSPC);
            break;
        }
        written += static_cast<size_t>(count);
    }
    return written;
}

} // namespace VelBrx
