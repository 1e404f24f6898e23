#include "store/builder/StoreHeader.h"

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "store/las/Projection.h"
#include "store/las/VlrHeader.h"

#include <algorithm>
#include <cstring>

namespace VelBrx {

using namespace LasLayout;

namespace {

constexpr uint16_t kExtraBytesId = 4;
constexpr uint16_t kFirstWaveformDescriptorId = 100;
constexpr uint16_t kLastWaveformDescriptorId = 354;
constexpr size_t kMaxVlrLength = 65535;

/// Whether a VLR is a projection record that holds something.
bool isProjection(const LasVlr& vlr)
{
    return vlr.userId == kProjectionUserId &&
           std::any_of(vlr.data.begin(), vlr.data.end(), [](uint8_t byte) { return byte != 0; });
}

/// What two files that state a coordinate system differ in, "is not that of there.las"; empty where it is
/// the same.
std::string difference(const LasFile& known, const LasFile& file, const BuildOptions& options)
{
    const ProjectionRecords a = projectionOf(known);
    const ProjectionRecords b = projectionOf(file);
    if (areSameWords(a, b)) return {};
    if (!options.compareSystems) return "is not that of " + known.path;
    const std::string differs = options.compareSystems(a, b);
    return differs.empty() ? differs : "is not that of " + known.path + ": " + differs;
}

/// Whether a VLR stays true of the store's records.
bool isKept(const LasVlr& vlr)
{
    if (vlr.userId == "laszip encoded" || vlr.userId == "copc") return false;
    if (vlr.userId != "LASF_Spec") return true;
    return vlr.recordId != kExtraBytesId &&
           !(vlr.recordId >= kFirstWaveformDescriptorId && vlr.recordId <= kLastWaveformDescriptorId);
}

/// Some writers repeat the WKT in a record of their own.
bool statesSystem(const LasVlr& vlr)
{
    return vlr.userId == kProjectionUserId || (vlr.userId == "liblas" && vlr.recordId == kWktId);
}

/// A VLR that states the coordinate system in OGC WKT.
LasVlr wktVlr(const std::string& wkt)
{
    LasVlr vlr;
    const std::vector<uint8_t> head = makeVlr(kProjectionUserId, kWktId, "OGC coordinate system WKT", 0);
    std::copy(head.begin(), head.end(), vlr.head.begin());
    vlr.userId = kProjectionUserId;
    vlr.recordId = kWktId;
    vlr.data.assign(wkt.begin(), wkt.end());
    vlr.data.push_back(0);
    return vlr;
}

/// The store's VLRs: the first source's, and its coordinate system where an EVLR holds it, or else the one
/// that is `given`.
std::vector<LasVlr> keptVlrs(const std::vector<const LasFile*>& sources, const std::string& given)
{
    std::vector<LasVlr> kept;
    for (const LasVlr& vlr : sources.front()->vlrs)
        if (isKept(vlr) && (given.empty() || !statesSystem(vlr))) kept.push_back(vlr);
    if (!given.empty()) {
        kept.push_back(wktVlr(given));
        return kept;
    }
    // The first file may be the one without a coordinate system.
    for (const LasFile* file : sources) {
        if (std::any_of(kept.begin(), kept.end(), isProjection)) break;
        for (const std::vector<LasVlr>* list : {&file->vlrs, &file->evlrs})
            for (const LasVlr& vlr : *list)
                if (isProjection(vlr) && vlr.data.size() <= kMaxVlrLength) kept.push_back(vlr);
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
        if (isProjection(vlr) && (vlr.recordId == kWktId || vlr.recordId == kMathTransformWktId))
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

/// Notes how many inputs state another system than the one that is given.
void noteReplaced(const std::vector<const LasFile*>& sources, const BuildOptions& options,
                  std::vector<std::string>& notes)
{
    ProjectionRecords given;
    given.wkt = options.coordinateSystem;
    const auto others = std::count_if(sources.begin(), sources.end(), [&](const LasFile* file) {
        const ProjectionRecords stated = projectionOf(*file);
        return !stated.isEmpty() && !areSameWords(given, stated) &&
               (!options.compareSystems || !options.compareSystems(given, stated).empty());
    });
    if (others > 0)
        notes.push_back(options.output + ": states the coordinate system that was given; " +
                        std::to_string(others) + " of " + std::to_string(sources.size()) +
                        " inputs state another one");
}

Status checkSystems(const std::vector<const LasFile*>& sources, const BuildOptions& options,
                    std::vector<std::string>& notes)
{
    const LasFile* known = nullptr;
    for (const LasFile* file : sources)
        if (!known && !projectionOf(*file).isEmpty()) known = file;
    for (const LasFile* file : sources) {
        if (!known || file == known) continue;
        if (projectionOf(*file).isEmpty())
            notes.push_back(file->path + ": tells no coordinate system; that of " + known->path +
                            " is taken");
        else if (const std::string differs = difference(*known, *file, options); !differs.empty())
            return Status::failure(file->path + ": its coordinate system " + differs +
                                   "; bring the files to one system, build a store of each or, where a file "
                                   "states a wrong one, name the right one for all with --crs");
    }
    return {};
}

} // namespace

Status checkCompatible(const std::vector<const LasFile*>& sources, const BuildOptions& options,
                       std::vector<std::string>& notes)
{
    if (options.coordinateSystem.size() >= kMaxVlrLength)
        return Status::failure(options.output +
                               ": its coordinate system is longer than a record of LAS takes");
    if (!options.coordinateSystem.empty())
        noteReplaced(sources, options, notes);
    else if (Status status = checkSystems(sources, options, notes); !status)
        return status;
    for (const LasFile* file : sources)
        if ((file->globalEncoding ^ sources.front()->globalEncoding) & kGpsStandardTimeBit)
            notes.push_back(file->path + ": counts GPS time otherwise than " + sources.front()->path +
                            "; the times are kept as they are");
    return {};
}

std::vector<uint8_t> makeStoreHeader(const StoreHeaderContent& content)
{
    const LasFile& first = *content.sources.front();
    const std::vector<LasVlr> vlrs = keptVlrs(content.sources, content.coordinateSystem);
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
