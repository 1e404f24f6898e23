#include <VelBrx/File.h>

#include <algorithm>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VelBrx {

struct File::Mapping
{
    int descriptor = -1;
    bool writable = false;
    bool regular = false;
    void* memory = nullptr;
    int64_t length = 0;

    ~Mapping()
    {
        if (memory) munmap(memory, static_cast<size_t>(length));
        if (descriptor >= 0) close(descriptor);
    }

    int64_t currentSize() const
    {
        struct stat status
        {
        };
        return descriptor >= 0 && fstat(descriptor, &status) == 0 ? static_cast<int64_t>(status.st_size) : 0;
    }
};

File::File(const char* path) : _mapping(std::make_unique<Mapping>())
{
    if (!path || !*path) return;
    Mapping& mapping = *_mapping;
    // Without O_NONBLOCK the open of a pipe would wait for the pipe's other end.
    mapping.descriptor = open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK);
    mapping.writable = mapping.descriptor >= 0;
    if (!mapping.writable) mapping.descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);

    struct stat status
    {
    };
    mapping.regular =
        mapping.descriptor >= 0 && fstat(mapping.descriptor, &status) == 0 && S_ISREG(status.st_mode);
    if (!mapping.regular || status.st_size == 0) return;

    const int protection = mapping.writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* memory =
        mmap(nullptr, static_cast<size_t>(status.st_size), protection, MAP_SHARED, mapping.descriptor, 0);
    if (memory == MAP_FAILED) return;
    mapping.memory = memory;
    mapping.length = status.st_size;
}

File::~File() = default;

bool File::isOpen() const
{
    return _mapping->descriptor >= 0;
}

bool File::isValid() const
{
    return _mapping->memory != nullptr;
}

bool File::isWritable() const
{
    return isOpen() && _mapping->writable;
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
    return static_cast<uint8_t*>(mapping.memory) + offset;
}

void File::unmap(void*) {}

bool File::sync()
{
    return _mapping->memory && msync(_mapping->memory, static_cast<size_t>(_mapping->length), MS_SYNC) == 0;
}

} // namespace VelBrx
