#include <VelBrx/PointVisit.h>

#include "store/io/ParallelRun.h"
#include "store/part/PointFilter.h"
#include "store/part/StoreFile.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace VelBrx {

namespace {

constexpr uint64_t kBlockPoints = 1 << 16;

/// Consecutive points of a cell.
struct Piece
{
    uint64_t first;
    uint64_t count;
    unsigned level;
};

std::vector<Piece> piecesOf(const StoreIndex& index, const PointFilter& filter, unsigned lastLevel)
{
    std::vector<Piece> pieces;
    for (const IndexCell& cell : index.cells)
        for (const Segment& segment : cell.segments) {
            const auto end = static_cast<uint64_t>(segment.first + segment.count);
            for (auto first = static_cast<uint64_t>(segment.first); first < end; first += kBlockPoints) {
                const uint64_t count = std::min(kBlockPoints, end - first);
                if (cell.level <= lastLevel && filter.mayTakeAnyOf(first, count))
                    pieces.push_back({first, count, cell.level});
            }
        }
    return pieces;
}

/// Leaves the records of the points that are taken; returns how many.
size_t takeOf(const PointFilter& filter, const Piece& piece, std::vector<uint8_t>& records)
{
    if (filter.takesAll()) return piece.count;
    size_t taken = 0;
    for (uint64_t i = 0; i < piece.count; ++i) {
        const uint8_t* const record = &records[i * PointRecord::kPointSize];
        if (!filter.takes(piece.first + i, record)) continue;
        if (taken < i)
            std::memcpy(&records[taken * PointRecord::kPointSize], record, PointRecord::kPointSize);
        ++taken;
    }
    return taken;
}

} // namespace

Status visitPoints(const PointVisit& wanted, const std::function<void(const PointBlock&)>& visit)
{
    StoreFile store;
    store.path = wanted.store;
    StoreIndex index;
    if (Status status = PointFilter::check(wanted.part); !status) return status.of(wanted.store);
    if (Status status = readStore(wanted.store, store.file, store.head, index); !status)
        return status.of(wanted.store);
    const BrxHeader& header = store.head.header;
    PointFilter filter(wanted.part, store, index);
    ParallelRun run(wanted.threads, wanted.progress, wanted.cancel);
    const std::vector<Piece> pieces = piecesOf(index, filter, wanted.lastLevel);
    run.setTotal(header.pointCount, 1 + filter.passes());
    run.begin("choosing");
    if (Status status = filter.choose(index, wanted.memory, run); !status) return status.of(wanted.store);
    run.begin("reading");
    const Status status = run.forEach(pieces.size(), [&](size_t i) -> Status {
        const Piece& piece = pieces[i];
        std::vector<uint8_t> records(piece.count * PointRecord::kPointSize);
        if (!store.file.read(header.pointDataStart +
                                 static_cast<int64_t>(piece.first * PointRecord::kPointSize),
                             records.data(), records.size()))
            return Status::failure("its points cannot be read; the disk fails or the file is being cut");
        PointBlock block;
        block.records = records.data();
        block.count = takeOf(filter, piece, records);
        block.level = piece.level;
        std::copy_n(header.scale, 3, block.scale.begin());
        std::copy_n(header.offset, 3, block.offset.begin());
        if (block.count > 0) visit(block);
        run.done(piece.count);
        return {};
    });
    return status.of(wanted.store);
}

} // namespace VelBrx
