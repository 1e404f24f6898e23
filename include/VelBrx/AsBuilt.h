#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/File.h>
#include <VelBrx/PointRecord.h>
#include <VelBrx/Status.h>

#include <cstdint>
#include <memory>
#include <string>

namespace VelBrx {

/// What edits can change, as it was when the store was built: the class of each point, and whether it was
/// hidden because its source had withheld it. Threads: any, once it is open.
class VEL_BRX_EXPORT AsBuilt
{
public:
    /// Finds it in the store at `path`, which `file` has mapped and keeps. Fails where the store does not
    /// tell, as one that `brx build` did not make; the message names the path.
    static Status open(const std::string& path, const std::shared_ptr<File>& file, AsBuilt& built);

    bool isOpen() const { return _count > 0; }

    /// Of a record number below the number of points.
    uint8_t classOf(uint64_t point) const { return _classes[ordinalOf(point)]; }
    bool wasHidden(uint64_t point) const
    {
        constexpr unsigned kWithheld = 4;
        const uint64_t ordinal = ordinalOf(point);
        return (_flags[ordinal / 2] >> ordinal % 2 * 4 & kWithheld) != 0;
    }

    /// Whether the point was another one then: `classCode` is its class now, `flags` the byte of its record
    /// with the hidden bits.
    bool differs(uint64_t point, uint8_t classCode, uint8_t flags) const
    {
        return classOf(point) != classCode || wasHidden(point) != ((flags & PointRecord::kHiddenBits) != 0);
    }

private:
    uint64_t ordinalOf(uint64_t point) const;

    std::shared_ptr<File> _file;
    uint64_t _count = 0;
    uint8_t _ordinalSize = 0;
    const uint8_t* _ordinals = nullptr; ///< what each record is in the order of the sources
    const uint8_t* _flags = nullptr;    ///< by ordinal, four bits each
    const uint8_t* _classes = nullptr;  ///< by ordinal
};

} // namespace VelBrx
