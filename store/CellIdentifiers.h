#pragma once

#include <VelBrx/CellWithSegment.h>
#include <VelBrx/FileIdentity.h>

#include <cstdint>
#include <string>

namespace VelBrx {

/// The identifiers of the cells of a store's file: no two cells of any files have the same. All cells of a
/// file begin with the file's key.
class CellIdentifiers
{
public:
    CellIdentifiers(const FileIdentity& file, uint64_t storeId);

    const std::string& fileKey() const { return _fileKey; }

    /// Writes the identifier of the cell at `cell`'s level and code into it. The level is at most 21, the
    /// code less than 8^level.
    void identify(CellWithSegment& cell) const;

private:
    std::string _fileKey;
};

} // namespace VelBrx
