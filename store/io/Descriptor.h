#pragma once

#include <unistd.h>

namespace VelBrx {

/// A file's descriptor, closed at the end of its life; below 0: none.
class Descriptor
{
public:
    explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
    ~Descriptor()
    {
        if (_descriptor >= 0) close(_descriptor);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return _descriptor; }

private:
    const int _descriptor;
};

} // namespace VelBrx
