#include "store/export/CopcHead.h"

#include "store/io/ByteIo.h"
#include "store/las/LasFile.h"
#include "store/las/LasLayout.h"
#include "store/las/VlrHeader.h"

#include <algorithm>
#include <cmath>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr char kCopcUserId[] = "copc";
constexpr uint16_t kInfoId = 1;
constexpr uint16_t kHierarchyId = 1000;
constexpr size_t kEntrySize = 32;

/// \name The info record behind its VLR header
/// @{
constexpr size_t kInfoLength = 160;
constexpr size_t kCenterAt = 0; ///< 3 float64
constexpr size_t kHalfSizeAt = 24;
constexpr size_t kSpacingAt = 32;
constexpr size_t kRootPageAt = 40;
constexpr size_t kRootPageLengthAt = 48;
constexpr size_t kMinTimeAt = 56;
constexpr size_t kMaxTimeAt = 64;
/// @}

} // namespace

CopcCube::CopcCube(const StoreIndex& index, const BrxHeader& header)
    : halfSize(index.cubeSize / 2), spacing(index.cubeSize / index.gridSize)
{
    constexpr double kShift = 1.0 / 16; // of a step
    for (size_t axis = 0; axis < 3; ++axis)
        center[axis] = index.cubeMin[axis] + halfSize - kShift * header.scale[axis];
}

CopcCube::Box CopcCube::node(unsigned level, uint64_t code) const
{
    Box box;
    for (size_t axis = 0; axis < 3; ++axis) {
        double low = center[axis] - halfSize;
        double high = center[axis] + halfSize;
        for (unsigned digit = level; digit-- > 0;) {
            const double middle = low + (high - low) / 2;
            (code >> (3 * digit + axis) & 1 ? low : high) = middle;
        }
        box.min[axis] = low;
        box.max[axis] = high;
    }
    return box;
}

bool makeCopcHead(const LazItems& items, LasHead& head)
{
    if (!compressHead(items, head)) return false;
    const std::vector<uint8_t> info = makeVlr(kCopcUserId, kInfoId, "COPC info VLR", kInfoLength);
    std::vector<uint8_t>& bytes = head.bytes;
    bytes.insert(bytes.begin() + kHeaderSize, info.begin(), info.end());
    storeLe(&bytes[kVlrCount], loadLe<uint32_t>(&bytes[kVlrCount]) + 1);
    storeLe(&bytes[kPointDataStart], static_cast<uint32_t>(bytes.size()));
    return true;
}

void tellCopc(const CopcCube& cube, const GpsTimeRange& times, uint64_t hierarchyStart,
              uint64_t hierarchyLength, LasHead& head)
{
    uint8_t* const info = &head.bytes[kHeaderSize + kVlrHeaderSize];
    for (size_t axis = 0; axis < 3; ++axis)
        storeLe(info + kCenterAt + 8 * axis, cube.center[axis]);
    storeLe(info + kHalfSizeAt, cube.halfSize);
    storeLe(info + kSpacingAt, cube.spacing);
    storeLe(info + kRootPageAt, hierarchyStart + kEvlrHeaderSize);
    storeLe(info + kRootPageLengthAt, hierarchyLength - kEvlrHeaderSize);
    storeLe(info + kMinTimeAt, times.min);
    storeLe(info + kMaxTimeAt, times.max);
    storeLe(&head.bytes[kEvlrStart], hierarchyStart);
    storeLe<uint32_t>(&head.bytes[kEvlrCount], 1);
}

std::vector<uint8_t> makeCopcHierarchy(const std::vector<IndexCell>& cells,
                                       const std::vector<LazChunk>& chunks)
{
    const size_t length = kEntrySize * cells.size();
    std::vector<uint8_t> bytes = makeEvlrHeader(kCopcUserId, kHierarchyId, "EPT hierarchy", length);
    bytes.resize(kEvlrHeaderSize + length);
    uint8_t* entry = bytes.data() + kEvlrHeaderSize;
    for (size_t i = 0; i < cells.size(); ++i, entry += kEntrySize) {
        const std::array<uint32_t, 3> place = mortonDecode(cells[i].code);
        const LazChunk& chunk = chunks[i];
        storeLe<int32_t>(entry, cells[i].level);
        for (size_t axis = 0; axis < 3; ++axis)
            storeLe(entry + 4 + 4 * axis, static_cast<int32_t>(place[axis]));
        storeLe<uint64_t>(entry + 16, chunk.size > 0 ? chunk.position : 0);
        storeLe(entry + 24, static_cast<int32_t>(chunk.size));
        storeLe(entry + 28, static_cast<int32_t>(chunk.size > 0 ? chunk.pointCount : 0));
    }
    return bytes;
}

bool hasWkt(const LasHead& head)
{
    return loadLe<uint16_t>(&head.bytes[kGlobalEncoding]) & kWktBit;
}

} // namespace VelBrx
