#include "store/builder/StoreHeader.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "store/las/VlrHeader.h"

#include <algorithm>
#include <cstring>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr char kProjection[] = "LASF_Projection";
constexpr uint16_t kWktId = 2112;
constexpr uint16_t kMathTransformWktId = 2111;
constexpr uint16_t kGeoKeysId = 34735;
constexpr uint16_t kGeoDoublesId = 34736;
constexpr uint16_t kGeoTextId = 34737;
constexpr uint16_t kExtraBytesId = 4;
constexpr uint16_t kFirstWaveformDescriptorId = 100;
constexpr uint16_t kLastWaveformDescriptorId = 354;
constexpr size_t kMaxVlrLength = 65535;

/// A text or key record without the NULs that some writers add.
std::vector<uint8_t> trimmed(std::vector<uint8_t> data)
{
    while (!data.empty() && data.back() == 0)
        data.pop_back();
    return data;
}

/// The payload of a projection record, wherever the file keeps it; empty when it has none.
std::vector<uint8_t> projectionRecord(const LasFile& file, uint16_t id)
{
    for (const std::vector<LasVlr>* list : {&file.vlrs, &file.evlrs})
        for (const LasVlr& vlr : *list)
            if (vlr.userId == kProjection && vlr.recordId == id) return trimmed(vlr.data);
    return {};
}

bool hasWkt(const LasFile& file)
{
    return !projectionRecord(file, kWktId).empty();
}

bool hasGeoKeys(const LasFile& file)
{
    return !projectionRecord(file, kGeoKeysId).empty();
}

/// Both files have a coordinate system.
bool haveSameSystem(const LasFile& a, const LasFile& b)
{
    if (hasWkt(a) && hasWkt(b)) return projectionRecord(a, kWktId) == projectionRecord(b, kWktId);
    if (!hasGeoKeys(a) || !hasGeoKeys(b)) return false;
    for (uint16_t id : {kGeoKeysId, kGeoDoublesId, kGeoTextId})
        if (projectionRecord(a, id) != projectionRecord(b, id)) return false;
    return true;
}

/// Whether a VLR stays true of the store's records.
bool isKept(const LasVlr& vlr)
{
    if (vlr.userId == "laszip encoded" || vlr.userId == "copc") return false;
    if (vlr.userId != "LASF_Spec") return true;
    return vlr.recordId != kExtraBytesId &&
           !(vlr.recordId >= kFirstWaveformDescriptorId && vlr.recordId <= kLastWaveformDescriptorId);
}

/// The store's VLRs: the first source's, and its coordinate system where an EVLR holds it.
std::vector<LasVlr> keptVlrs(const std::vector<const LasFile*>& sources)
{
    std::vector<LasVlr> kept;
    for (const LasVlr& vlr : sources.front()->vlrs)
        if (isKept(vlr)) kept.push_back(vlr);
    // The first file may be the one without a coordinate system.
    for (const LasFile* file : sources) {
        const bool isKnown = std::any_of(kept.begin(), kept.end(), [](const LasVlr& vlr) {
            return vlr.userId == kProjection && !trimmed(vlr.data).empty();
        });
        if (isKnown) break;
        for (const std::vector<LasVlr>* list : {&file->vlrs, &file->evlrs})
            for (const LasVlr& vlr : *list)
                if (vlr.userId == kProjection && !trimmed(vlr.data).empty() &&
                    vlr.data.size() <= kMaxVlrLength)
                    kept.push_back(vlr);
    }
    return kept;
}

void appendVlr(const LasVlr& vlr, std::vector<uint8_t>& bytes)
{
    const size_t start = bytes.size();
    bytes.insert(bytes.end(), vlr.head.begin(), vlr.head.end());
    storeLe<uint16_t>(bytes.data() + start + kVlrLength, static_cast<uint16_t>(vlr.data.size()));
    bytes.insert(bytes.end(), vlr.data.begin(), vlr.data.end());
}

uint16_t globalEncoding(const std::vector<const LasFile*>& sources, const std::vector<LasVlr>& vlrs)
{
    uint16_t encoding = sources.front()->globalEncoding & kGpsStandardTimeBit;
    if (std::all_of(sources.begin(), sources.end(),
                    [](const LasFile* file) { return file->globalEncoding & kSyntheticReturnsBit; }))
        encoding |= kSyntheticReturnsBit;
    for (const LasVlr& vlr : vlrs)
        if (vlr.userId == kProjection && (vlr.recordId == kWktId || vlr.recordId == kMathTransformWktId) &&
            !trimmed(vlr.data).empty())
            encoding |= kWktBit;
    return encoding;
}

void storeNumbers(const StoreHeaderContent& content, uint8_t* header)
{
    const StoreGrid& grid = content.grid;
    for (size_t axis = 0; axis < 3; ++axis) {
        storeLe<double>(header + kScale + 8 * axis, grid.scale[axis]);
        storeLe<double>(header + kOffset + 8 * axis, grid.offset[axis]);
        storeLe<double>(header + kBounds + 16 * axis, grid.coordinate(axis, grid.max[axis]));
        storeLe<double>(header + kBounds + 16 * axis + 8, grid.coordinate(axis, grid.min[axis]));
    }
    storeLe<uint64_t>(header + kPointCount, content.pointCount);
    for (size_t i = 0; i < 15; ++i)
        storeLe<uint64_t>(header + kPointsByReturn + 8 * i, content.statistics.pointsByReturn[i + 1]);
}

} // namespace

Status checkCompatible(const std::vector<const LasFile*>& sources, std::vector<std::string>& notes)
{
    const LasFile* known = nullptr;
    for (const LasFile* file : sources)
        if (!known && (hasWkt(*file) || hasGeoKeys(*file))) known = file;
    for (const LasFile* file : sources) {
        if (!known || file == known) continue;
        if (!hasWkt(*file) && !hasGeoKeys(*file))
            notes.push_back(file->path + ": tells no coordinate system; that of " + known->path +
                            " is taken");
        else if (!haveSameSystem(*known, *file))
            return Status::failure(file->path + ": its coordinate system is not that of " + known->path +
                                   "; bring the files to one system or build a store of each");
    }
    for (const LasFile* file : sources)
        if ((file->globalEncoding ^ sources.front()->globalEncoding) & kGpsStandardTimeBit)
            notes.push_back(file->path + ": counts GPS time otherwise than " + sources.front()->path +
                            "; the times are kept as they are");
    return {};
}

std::vector<uint8_t> makeStoreHeader(const StoreHeaderContent& content)
{
    const LasFile& first = *content.sources.front();
    const std::vector<LasVlr> vlrs = keptVlrs(content.sources);
    std::vector<uint8_t> bytes(kHeaderSize, 0);
    for (const LasVlr& vlr : vlrs)
        appendVlr(vlr, bytes);

    uint8_t* header = bytes.data();
    storeText(header + kSignature, kSignatureSize, "LASF");
    storeLe<uint16_t>(header + kFileSourceId, content.sources.size() == 1 ? first.sourceId : uint16_t{0});
    storeLe<uint16_t>(header + kGlobalEncoding, globalEncoding(content.sources, vlrs));
    std::memcpy(header + kGuid, first.projectId, sizeof first.projectId);
    header[kVersionMajor] = 1;
    header[kVersionMinor] = 4;
    std::memcpy(header + kSystemIdentifier, first.systemIdentifier, sizeof first.systemIdentifier);
    storeText(header + kGeneratingSoftware, kSoftwareSize, "vel_octree_brx");
    // The survey's date and not today's: the same input gives the same bytes.
    storeLe<uint16_t>(header + kCreationDay, first.creationDay);
    storeLe<uint16_t>(header + kCreationYear, first.creationYear);
    storeLe<uint16_t>(header + kHeaderSizeField, static_cast<uint16_t>(kHeaderSize));
    storeLe<uint32_t>(header + LasLayout::kPointDataStart, static_cast<uint32_t>(bytes.size()));
    storeLe<uint32_t>(header + kVlrCount, static_cast<uint32_t>(vlrs.size()));
    header[kPointFormat] = kStorePointFormat;
    storeLe<uint16_t>(header + kRecordLength, static_cast<uint16_t>(kPointSize));
    storeLe<uint64_t>(header + kEvlrStart, bytes.size() + content.pointCount * kPointSize);
    storeLe<uint32_t>(header + kEvlrCount, content.evlrCount);
    storeNumbers(content, header);
    return bytes;
}

} // namespace VelBrx
