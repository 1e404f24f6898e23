#pragma once

#include "store/io/FileReader.h"

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>

namespace VelBrx::Journal {

/// One byte of the point records of a store, as it would be after changes that are only thought of: the store
/// is not written. Pages of points are read when they are first asked for. One thread at a time.
class FieldOverlay
{
public:
    /// `store` outlives the overlay.
    FieldOverlay(const FileReader& store, int64_t pointDataStart, uint64_t pointCount, uint8_t field)
        : _store(store), _start(pointDataStart), _count(pointCount), _field(field)
    {
    }

    /// The bytes of point `first` and of those behind it up to the end of its page, whose number goes to
    /// `count`; null where they cannot be read.
    uint8_t* bytes(uint64_t first, uint64_t& count);

    void clear() { _pages.clear(); }

private:
    static constexpr uint64_t kPage = 65536; ///< points
    using Page = std::array<uint8_t, kPage>;

    bool read(uint64_t first, Page& page) const;

    const FileReader& _store;
    const int64_t _start;
    const uint64_t _count;
    const uint8_t _field;
    std::unordered_map<uint64_t, std::unique_ptr<Page>> _pages;
};

} // namespace VelBrx::Journal
