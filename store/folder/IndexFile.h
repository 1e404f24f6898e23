#pragma once

#include <VelBrx/FolderIndex.h>

#include <cstdint>
#include <vector>

namespace VelBrx {

/// The bytes of a folder's index file: "brxindex", a version, records in CBOR, each behind its length, and
/// the CRC-32C of all that is before it. Numbers outside the records are little-endian, of 4 bytes. Names of
/// files are bytes of any kind.
std::vector<uint8_t> encodeIndexFile(const FolderIndex& index);

/// Reads such bytes. A failure says what is wrong, without a name, and leaves `index` as it was.
Status decodeIndexFile(const std::vector<uint8_t>& bytes, FolderIndex& index);

} // namespace VelBrx
