#include "store/io/TemporaryFile.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace VelBrx {

Status openTemporaryFile(const std::string& folder, int& descriptor)
{
    descriptor = open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        // Not every file system knows files that never had a name.
        std::string name = folder + "/.brx-XXXXXX";
        descriptor = mkostemp(name.data(), O_CLOEXEC);
        if (descriptor >= 0) unlink(name.c_str());
    }
    return descriptor >= 0 ? Status()
                           : systemFailure(folder + ": no temporary file can be made in it", errno);
}

Status TemporaryFile::create(const std::string& folder, uint64_t size)
{
    int descriptor = -1;
    if (Status status = openTemporaryFile(folder, descriptor); !status) return status;
    _file.take(descriptor, folder + ": a temporary file");
    return _file.reserve(size);
}

} // namespace VelBrx
