#pragma once

#include "tests/support/TempFolder.h"

#include <cstdint>
#include <string>

/// A store of the synthetic survey, in a folder that goes away with the object. Throws when it cannot be
/// made.
class SampleStore
{
public:
    explicit SampleStore(uint64_t points);

    const std::string& path() const { return _path; }
    uint64_t pointCount() const { return _pointCount; }

private:
    TempFolder _folder;
    std::string _path;
    uint64_t _pointCount = 0;
};
