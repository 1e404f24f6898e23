#pragma once

#include "store/las/LasFile.h"
#include "store/las/RecordFields.h"
#include "tests/support/TempFolder.h"

#include <cstdint>
#include <string>
#include <vector>

/// The points of a LAS or LAZ file as a build reads them, and what is told of them.
struct ReadPoints
{
    VelBrx::Status status;
    VelBrx::LasFile file;
    std::vector<uint8_t> records;
    std::vector<std::string> notes;
};

ReadPoints readPoints(const std::string& path, VelBrx::RecordFields fields = VelBrx::RecordFields::All);

/// The same of `bytes` as the file "test.laz" in a folder, for tests that read thousands of files.
ReadPoints readPoints(const TempFolder& folder, const std::vector<uint8_t>& bytes);
