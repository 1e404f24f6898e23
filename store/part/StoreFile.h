#pragma once

#include "store/StoreHead.h"
#include "store/io/FileReader.h"

#include <string>

namespace VelBrx {

/// A store that is open for reading.
struct StoreFile
{
    std::string path;
    FileReader file;
    StoreHead head;
};

} // namespace VelBrx
