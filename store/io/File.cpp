#include <VelBrx/File.h>

#include "store/io/Descriptor.h"
#include "store/io/EditLock.h"
#include "store/io/IdentifyFile.h"
#include "store/io/MappedRegion.h"

#include <VelBrx/ReadErrors.h>
#include <VelThreads/Mutex.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VelBrx {

/// The whole file in memory, without a descriptor: a process may show more stores than it may open files.
struct File::Mapping
{
    explicit Mapping(const File& mapped) : file(mapped) {}

    const File& file;
    bool isOpen = false;
    bool writable = false;
    std::string path; ///< absolute, by which the file's size is asked for
    FileIdentity identity;
    void* memory = nullptr;
    int64_t length = 0;
    std::optional<MappedRegion> region; ///< of the memory
    std::atomic<bool> editAnyway{false};
    VelThreads::Mutex lockMutex;
    std::shared_ptr<EditLock> editLock VEL_GUARDED_BY(lockMutex);

    ~Mapping()
    {
        region.reset();
        if (memory) munmap(memory, static_cast<size_t>(length));
    }

    void open(const char* name);
    void use(const std::string& name, int descriptor, bool isWritable);
    void map(int descriptor, const struct stat& status);

    /// Asks for the file under the path. False when it is another one or none. While a file is mapped no
    /// other one gets its inode.
    bool findByName(struct stat& status) const
    {
        return isOpen && stat(path.c_str(), &status) == 0 && status.st_dev == identity.device &&
               status.st_ino == identity.inode;
    }

    /// A file that has lost its name is nobody's to cut.
    int64_t currentSize() const
    {
        struct stat status
        {
        };
        return findByName(status) ? static_cast<int64_t>(status.st_size) : length;
    }
};

void File::Mapping::open(const char* name)
{
    // Without O_NONBLOCK the open of a pipe would wait for the pipe's other end.
    const int writing = ::open(name, O_RDWR | O_CLOEXEC | O_NONBLOCK);
    const Descriptor opened(writing >= 0 ? writing : ::open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (opened.get() >= 0) use(name, opened.get(), writing >= 0);
}

void File::Mapping::use(const std::string& name, int descriptor, bool isWritable)
{
    struct stat status
    {
    };
    if (fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) return;
    isOpen = true;
    writable = isWritable;
    std::error_code error;
    path = std::filesystem::absolute(name, error).string();
    if (S_ISREG(status.st_mode)) map(descriptor, status);
}

void File::Mapping::map(int descriptor, const struct stat& status)
{
    identity = identifyFile(descriptor);
    if (status.st_size == 0) return;
    const int protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const mapped =
        mmap(nullptr, static_cast<size_t>(status.st_size), protection, MAP_SHARED, descriptor, 0);
    if (mapped == MAP_FAILED) return;
    memory = mapped;
    length = status.st_size;
    region.emplace(file, memory, static_cast<size_t>(length));
}

File::File(const char* path) : _mapping(std::make_unique<Mapping>(*this))
{
    if (path && *path) _mapping->open(path);
}

File::File(const std::string& path, int descriptor, bool writable)
    : _mapping(std::make_unique<Mapping>(*this))
{
    _mapping->use(path, descriptor, writable);
}

File::~File() = default;

bool File::isOpen() const
{
    return _mapping->isOpen;
}

bool File::isValid() const
{
    return _mapping->memory != nullptr;
}

bool File::isWritable() const
{
    return isOpen() && _mapping->writable;
}

const FileIdentity& File::identity() const
{
    return _mapping->identity;
}

bool File::isStillNamed() const
{
    struct stat status
    {
    };
    return _mapping->findByName(status);
}

int64_t File::size() const
{
    return _mapping->currentSize();
}

void* File::map(int64_t offset, int64_t length)
{
    const Mapping& mapping = *_mapping;
    if (!mapping.memory || offset < 0 || length <= 0) return nullptr;
    // The file may have been cut since it was mapped; reading beyond its end would be a bus error.
    const int64_t end = std::min(mapping.length, mapping.currentSize());
    if (length > end || offset > end - length) return nullptr;
    uint8_t* const memory = static_cast<uint8_t*>(mapping.memory) + offset;
    return wasRead(memory, length) ? memory : nullptr;
}

void File::unmap(void*) {}

Status File::lockForEditing()
{
    Mapping& mapping = *_mapping;
    const VelThreads::Lock guard(mapping.lockMutex);
    if (mapping.editLock) return {};
    const Descriptor opened(reopen());
    if (opened.get() < 0) return {}; // it cannot be written either, which is for the writer to say
    Status status;
    mapping.editLock = EditLock::acquire(opened.get(), mapping.editAnyway, status);
    return status;
}

void File::editAnyway()
{
    _mapping->editAnyway = true;
}

int File::reopen() const
{
    struct stat status
    {
    };
    if (!isWritable()) return -1;
    const int descriptor = ::open(_mapping->path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return -1;
    if (fstat(descriptor, &status) == 0 && status.st_dev == _mapping->identity.device &&
        status.st_ino == _mapping->identity.inode)
        return descriptor;
    close(descriptor);
    return -1;
}

int64_t File::offsetOf(const void* memory) const
{
    return static_cast<const uint8_t*>(memory) - static_cast<const uint8_t*>(_mapping->memory);
}

bool File::sync()
{
    return _mapping->memory && msync(_mapping->memory, static_cast<size_t>(_mapping->length), MS_SYNC) == 0;
}

} // namespace VelBrx
