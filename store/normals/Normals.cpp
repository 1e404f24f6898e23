#include <VelBrx/Normals.h>

#include "store/StoreHead.h"
#include "store/io/ByteIo.h"
#include "store/io/OutputFile.h"
#include "store/io/ParallelRun.h"
#include "store/normals/NormalTile.h"
#include "store/normals/TilePlan.h"

#include <atomic>
#include <cstring>

namespace VelBrx {

namespace {

constexpr char kMagic[] = "VBNM";
constexpr uint32_t kVersion = 2;
constexpr uint32_t kVersionWithCount = 1; ///< had the number of points where the store's identity is now
constexpr size_t kHeaderSize = 16;
constexpr size_t kNormalSize = 16;
constexpr uint64_t kTilePoints = 1 << 18;

std::array<uint8_t, kHeaderSize> fileHeader(uint64_t storeId)
{
    std::array<uint8_t, kHeaderSize> header{};
    std::memcpy(header.data(), kMagic, 4);
    storeLe<uint32_t>(&header[4], kVersion);
    storeLe<uint64_t>(&header[8], storeId);
    return header;
}

/// Whether a normals file belongs to a store. The message does not hold the path.
Status check(const FileReader& file, const BrxHeader& store)
{
    std::array<uint8_t, kHeaderSize> header{};
    if (!file.read(0, header.data(), header.size()) || std::memcmp(header.data(), kMagic, 4) != 0)
        return Status::failure("is not a normals file; brx normals writes the normals of a store");
    const uint32_t version = loadLe<uint32_t>(&header[4]);
    if (version != kVersion && version != kVersionWithCount)
        return Status::failure("has version " + std::to_string(version) +
                               ", which this program does not know; write it anew with brx normals --force");
    if (loadLe<uint64_t>(&header[8]) != (version == kVersion ? store.storeId : store.pointCount))
        return Status::failure("holds the normals of another store; write it anew with brx normals --force");
    if (static_cast<uint64_t>(file.size()) != kHeaderSize + store.pointCount * kNormalSize)
        return Status::failure("was cut or added to; write it anew with brx normals --force");
    return {};
}

/// Writes normals, which are in the order of the store, each run of consecutive points by one call.
Status writeRuns(OutputFile& file, const std::vector<PointNormal>& normals)
{
    std::vector<uint8_t> bytes;
    for (size_t first = 0, next = 0; first < normals.size(); first = next) {
        bytes.clear();
        for (; next < normals.size() && normals[next].index == normals[first].index + (next - first);
             ++next) {
            bytes.resize(bytes.size() + kNormalSize);
            uint8_t* const record = bytes.data() + bytes.size() - kNormalSize;
            for (size_t axis = 0; axis < 3; ++axis)
                storeLe<float>(record + 4 * axis, normals[next].normal[axis]);
        }
        const uint64_t position = kHeaderSize + normals[first].index * kNormalSize;
        if (Status status = file.write(position, bytes.data(), bytes.size()); !status) return status;
    }
    return {};
}

Status write(const NormalsOptions& options)
{
    const std::string path = normalsPath(options.store);
    if (options.neighbours < kLeastNeighbours || options.neighbours > kMostNeighbours)
        return Status::failure(path + ": a plane is fitted to " + std::to_string(kLeastNeighbours) + " to " +
                               std::to_string(kMostNeighbours) + " neighbours");
    FileReader store;
    StoreHead head;
    StoreIndex index;
    if (Status status = readStore(options.store, store, head, index); !status)
        return status.of(options.store);
    const uint64_t points = head.header.pointCount;
    OutputFile file;
    if (Status status = file.create(path, options.overwrite, kHeaderSize + points * kNormalSize); !status)
        return status;

    ParallelRun run(options.threads, options.progress, options.cancel);
    run.setTotal(points);
    run.begin("computing normals");
    const CellSpace space(store, head.header, index);
    const std::vector<SpaceBox> tiles = planTiles(space, kTilePoints);
    std::atomic<uint64_t> written{0};
    const Status computed = run.forEach(tiles.size(), [&](size_t i) -> Status {
        std::vector<PointNormal> normals;
        const auto step = [&run](uint64_t done) { return run.step(done); };
        if (Status status = NormalTile(space, tiles[i], options.neighbours).compute(normals, step); !status)
            return status.of(options.store);
        written += normals.size();
        return writeRuns(file, normals);
    });
    if (!computed) return computed;
    if (written != points)
        return Status::failure(options.store + ": has points outside their cells; brx verify names them",
                               Status::Kind::DAMAGED);
    const auto header = fileHeader(index.storeId);
    if (Status status = file.write(0, header.data(), header.size()); !status) return status;
    if (Status status = file.commit(); !status) return status;
    run.begin("done");
    return {};
}

} // namespace

std::string normalsPath(const std::string& store)
{
    return store + ".normals";
}

Status checkNormals(const std::string& path, const BrxHeader& store)
{
    FileReader file;
    Status status = file.open(path);
    if (status) status = check(file, store);
    return status.of(path);
}

std::string findNormals(const std::string& store)
{
    FileReader file;
    StoreHead head;
    StoreIndex index;
    const std::string path = normalsPath(store);
    return readStore(store, file, head, index) && checkNormals(path, head.header) ? path : std::string();
}

Status writeNormals(const NormalsOptions& options)
{
    return runToFile(normalsPath(options.store), "; use fewer threads", [&] { return write(options); });
}

} // namespace VelBrx
