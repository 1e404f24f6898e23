#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/FileIdentity.h>
#include <VelBrx/Status.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace VelBrx {

class EditLock;
struct StoreInfo;

/// An open file whose byte ranges can be used as memory.
///
/// The whole file is mapped once, so `map` costs no mapping call of its own. A file that may be written is
/// mapped shared and writable: what is stored through `map` reaches the file. A file that may only be read is
/// mapped read-only; writing through `map` is then an error of the caller, who asks `isWritable` first. No
/// file descriptor is kept, so a process may hold more files than it may have descriptors.
///
/// Threads: `map`, `unmap` and the queries may be called from any thread at once. `mutex` is the callers'
/// own: hold it while records are edited or saved; a camera-driven level-of-detail pass try-locks it and
/// skips the store while it is held. `map` and `unmap` do not take it.
class VEL_BRX_EXPORT File
{
public:
    /// Opens `path` for reading and writing, or for reading alone where writing is not permitted.
    /// Failure is seen from `isOpen`; nothing is thrown. A null or empty path is not open, nor is a folder.
    explicit File(const char* path);
    virtual ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool isOpen() const;

    /// Open, a regular file, not empty, and mapped: `map` can give its bytes.
    bool isValid() const;

    /// Open for writing, so that `map` gives writable memory.
    bool isWritable() const;

    /// Which file this is. It does not change, and no other file gets it as long as this object lives.
    const FileIdentity& identity() const;

    /// Whether the path that it was opened by leads to this very file at this moment, and not to another one
    /// that has taken its place, or to none. What is written to a file whose name is gone is lost.
    bool isStillNamed() const;

    /// Size of the file in bytes at this moment; 0 when it is not open. Of a file that was removed or
    /// replaced under its name, the size that it had when it was opened.
    int64_t size() const;

    /// Memory of the bytes [offset, offset + length), or null when the range is empty, overflows or does not
    /// lie inside the file as it is at this moment and was when it was opened: what was appended since is
    /// refused. The memory stays valid as long as this object lives, also after `unmap`. Cutting a file while
    /// memory behind its new end is in use ends the program (SIGBUS) unless it called `surviveReadErrors`, so
    /// stores are replaced by renaming, never written over.
    void* map(int64_t offset, int64_t length);

    /// Ends the use of memory that `map` gave. Null is ignored.
    void unmap(void* memory);

    /// Takes the advisory lock of those who edit the file, and keeps it as long as this object lives; nothing
    /// happens when this process has it already, through whichever object. A failure says who has it: tell
    /// the user, and leave the file as it is. It follows the name of the file in a sentence. The lock hinders
    /// nobody from reading the file, and ends with the process. Success without a lock where the file system
    /// has none, and where the file cannot be written at all.
    Status lockForEditing();

    /// The user's choice to edit a file that somebody else edits too: from now on `lockForEditing` succeeds.
    void editAnyway();

    /// Opens the file again to write to it; the caller closes the descriptor. Negative when that is not
    /// permitted, or another file has its name by now.
    int reopen() const;

    /// Where in the file memory is that `map` gave.
    int64_t offsetOf(const void* memory) const;

    /// Writes changed bytes of the mapped file to the disk. False when the system reports an error.
    bool sync();

    /// Serialises work on the file among its users; see the class comment.
    std::mutex mutex;

private:
    struct Mapping;

    friend VEL_BRX_EXPORT Status openStore(const std::string& path, StoreInfo& info,
                                           std::unique_ptr<File>& file);

    /// Maps what a descriptor has open; the descriptor stays the caller's.
    File(const std::string& path, int descriptor, bool writable);

    std::unique_ptr<Mapping> _mapping;
};

} // namespace VelBrx
