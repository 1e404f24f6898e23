#pragma once

#include <cstddef>

namespace VelBrx {

class File;
struct Region;

/// Memory that a file is mapped into, known to those who handle read errors as long as this object lives.
class MappedRegion
{
public:
    MappedRegion(const File& file, void* memory, size_t length);
    ~MappedRegion();
    MappedRegion(const MappedRegion&) = delete;
    MappedRegion& operator=(const MappedRegion&) = delete;

private:
    Region& _region;
};

} // namespace VelBrx
