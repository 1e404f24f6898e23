#include "store/journal/FieldOverlay.h"

#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <vector>

namespace VelBrx::Journal {

using PointRecord::kPointSize;

bool FieldOverlay::read(uint64_t first, Page& page) const
{
    const uint64_t count = std::min(kPage, _count - first);
    std::vector<uint8_t> records(count * kPointSize);
    if (!_store.read(_start + static_cast<int64_t>(first * kPointSize), records.data(), records.size()))
        return false;
    for (uint64_t i = 0; i < count; ++i)
        page[i] = records[i * kPointSize + _field];
    return true;
}

uint8_t* FieldOverlay::bytes(uint64_t first, uint64_t& count)
{
    const uint64_t start = first / kPage * kPage;
    std::unique_ptr<Page>& page = _pages[start];
    if (!page) {
        page = std::make_unique<Page>();
        if (!read(start, *page)) return nullptr;
    }
    count = std::min(kPage, _count - start) - (first - start);
    return page->data() + (first - start);
}

} // namespace VelBrx::Journal
