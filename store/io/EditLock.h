#pragma once

#include <VelBrx/Status.h>

#include <memory>
#include <string>

#include <sys/types.h>

namespace VelBrx {

/// This process's advisory lock on a file that it edits. It hinders nobody from reading or writing the file;
/// it only lets a second process find out. It ends with the last reference, and with the process. All who
/// edit the file in this process share it. Any thread may call it.
class EditLock
{
public:
    /// The lock of the file that `descriptor` has open for writing, which stays the caller's. Where another
    /// process has it, null and a failure that says who; with `evenSo`, a lock that stands for the choice to
    /// edit all the same. A file system without locks locks nothing.
    static std::shared_ptr<EditLock> acquire(int descriptor, bool evenSo, Status& status);

    ~EditLock();
    EditLock(const EditLock&) = delete;
    EditLock& operator=(const EditLock&) = delete;

private:
    EditLock() = default;

    /// A page of the file: the system keeps the lock while there is a mapping, and no descriptor is spent.
    void* _page = nullptr;
};

} // namespace VelBrx
