#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/File.h>
#include <VelBrx/Status.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VelBrx {

/// Where a point of a store comes from, and what it had there that the store's record does not hold.
struct SourcePoint
{
    /// One of the extra bytes, as text for people.
    struct Field
    {
        std::string name;
        std::string value; ///< numbers with their scale and offset; of undocumented bytes these
    };

    std::string file;         ///< name of the source without its folder
    uint64_t number = 0;      ///< of the point in its source, from 0
    unsigned pointFormat = 0; ///< of LAS
    uint8_t classCode = 0;    ///< as built
    bool isSynthetic = false;
    bool isKeyPoint = false;
    bool isWithheld = false;
    bool isOverlap = false;
    std::optional<uint16_t> nearInfrared;
    std::vector<Field> extraBytes;
};

/// Reads it for record `point` of the store at `path`, which `file` has open. Fails where the store does not
/// tell, as one that `brx build` did not make; the message names the path. Any thread may call it.
VEL_BRX_EXPORT Status readSourcePoint(const std::string& path, const File& file, uint64_t point,
                                      SourcePoint& found);

} // namespace VelBrx
