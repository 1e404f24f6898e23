#include "category/StoredClasses.h"

#include "edit/StoreEdit.h"
#include "loading/OpenOctrees.h"
#include "loading/PointRecords.h"

#include <VelBrx/File.h>
#include <VelBrx/FileWriter.h>
#include <VelBrx/MiraLasRead.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <optional>
#include <set>

using VelBrx::Status;

namespace {

using Cell = UnwrittenClasses::Cell;

ClassesPtr shared(std::vector<uint8_t> classes)
{
    return std::make_shared<const std::vector<uint8_t>>(std::move(classes));
}

/// The classes in the records of a cell; 0 for those that cannot be mapped.
std::vector<uint8_t> readClasses(VelBrx::File& file, const CellPlace& place)
{
    std::vector<uint8_t> classes(place.pointCount);
    forEachRun(file, place.pointDataStart, place.segments,
               [&](const uint8_t* records, int64_t count, uint32_t first) {
                   gatherClasses(records, count, classes.data() + first);
               });
    return classes;
}

/// Whether the records of all points can be mapped that have another class than the one written.
bool canWrite(VelBrx::File& file, const Cell& cell)
{
    uint64_t reached = 0;
    const bool complete =
        forEachRun(file, cell.place->pointDataStart, cell.place->segments,
                   [&](const uint8_t*, int64_t count, uint32_t first) {
                       reached += countDifferent(cell.written->data() + first, cell.current->data() + first,
                                                 static_cast<size_t>(count));
                   });
    return complete || reached == countDifferent(*cell.written, *cell.current);
}

/// The path by which the cell's store is open, or else was when it was edited.
std::string pathOf(const CellPlace& place)
{
    const osg::ref_ptr<OctreeInfo> octree = openOctree(place);
    return octree ? octree->pointPath : place.storePath;
}

/// Finds the places of a run whose class is to be written. A class that somebody else has written since the
/// edit began is left alone; returns how many there are.
uint64_t findChanges(const uint8_t* written, const uint8_t* current, const uint8_t* records, int64_t count,
                     std::vector<uint32_t>& places)
{
    uint64_t replaced = 0;
    for (int64_t i = 0; i < count; ++i) {
        const uint8_t inRecord = records[i * kRecordSize + kClassByte];
        if (written[i] == current[i] || inRecord == current[i]) continue;
        if (inRecord == written[i])
            places.push_back(static_cast<uint32_t>(i));
        else
            ++replaced;
    }
    return replaced;
}

/// A store with unwritten classes. Of the paths that it was edited by and that it is open by, one is used
/// that still leads to it.
class StoreToWrite
{
public:
    void add(const Cell& cell);

    /// Success when every class can be written.
    Status check();

    Status write();

private:
    Status open(const std::string& path);
    bool write(VelBrx::FileWriter& writer, const Cell& cell, uint64_t& replaced);
    void settle(const Cell& cell, uint64_t replaced);
    Status failure(const std::string& what) const { return Status::failure(_path + ": " + what); }

    std::set<std::string> _paths;
    std::string _path; ///< of _file
    std::unique_ptr<VelBrx::File> _file;
    std::vector<Cell> _cells;
};

void StoreToWrite::add(const Cell& cell)
{
    _paths.insert(cell.place->storePath);
    _paths.insert(pathOf(*cell.place));
    _cells.push_back(cell);
}

/// The file that was edited is still mapped, so that no other one has its identity. Another store may have
/// been written over its bytes.
Status StoreToWrite::open(const std::string& path)
{
    _file = std::make_unique<VelBrx::File>(path.c_str());
    if (!_file->isOpen())
        return Status::failure(path +
                               ": cannot be opened to save classes; put the store back and save again");
    VelBrx::BrxHeader header;
    const CellPlace& place = *_cells.front().place;
    if (_file->identity() != place.file->identity() ||
        !VelBrx::MiraLasRead::getBrxHeader(header, path.c_str()) ||
        place.identifier.rfind(header.fileKey, 0) != 0)
        return Status::failure(
            path + ": is no longer the store that was edited; put that back and save the classes again");
    _path = path;
    return {};
}

Status StoreToWrite::check()
{
    Status opened;
    for (auto path = _paths.begin(); path != _paths.end() && _path.empty(); ++path)
        opened = open(*path);
    if (!opened) return opened;

    if (!_file->isWritable())
        return failure("cannot be written; make it writable and save the classes again");
    if (const Status status = _file->lockForEditing(); !status) return failure(status.message());
    for (const Cell& cell : _cells)
        if (!canWrite(*_file, cell))
            return failure("is shorter than when it was loaded; restore it and save the classes again");
    return {};
}

/// Writes the classes of a cell that differ from its records. False when the file takes no more bytes.
bool StoreToWrite::write(VelBrx::FileWriter& writer, const Cell& cell, uint64_t& replaced)
{
    bool written = true;
    std::vector<uint32_t> places;
    forEachRun(*_file, cell.place->pointDataStart, cell.place->segments,
               [&](uint8_t* records, int64_t count, uint32_t first) {
                   const uint8_t* current = cell.current->data() + first;
                   places.clear();
                   replaced += findChanges(cell.written->data() + first, current, records, count, places);
                   const auto newClass = [&](size_t i, uint8_t) { return current[places[i]]; };
                   written = written && writer.set(records, kRecordSize, kClassByte, places.data(),
                                                   places.size(), newClass) == places.size();
               });
    return written;
}

/// Forgets a cell that is on the disk. What somebody else wrote is what its next save begins with.
void StoreToWrite::settle(const Cell& cell, uint64_t replaced)
{
    if (replaced == 0) return UnwrittenClasses::instance().forget(cell.place->identifier);
    std::vector<uint8_t> inStore = readClasses(*_file, *cell.place);
    std::vector<uint8_t> wanted = *cell.current;
    for (size_t i = 0; i < wanted.size(); ++i)
        if ((*cell.written)[i] == wanted[i]) wanted[i] = inStore[i]; // nobody here has edited this point
    UnwrittenClasses::instance().set({cell.place, shared(std::move(inStore)), shared(std::move(wanted))});
}

Status StoreToWrite::write()
{
    const osg::ref_ptr<OctreeInfo> octree = openOctree(*_cells.front().place);
    std::optional<StoreEditLock> lock;
    if (octree) lock.emplace(*octree);
    VelBrx::FileWriter writer(*_file);
    std::vector<uint64_t> replaced(_cells.size());
    for (size_t i = 0; i < _cells.size(); ++i)
        if (!write(writer, _cells[i], replaced[i])) return failure(writer.problem());
    if (!_file->sync()) return failure("the disk reported an error; save the classes again");
    for (size_t i = 0; i < _cells.size(); ++i)
        settle(_cells[i], replaced[i]);
    const uint64_t all = std::accumulate(replaced.begin(), replaced.end(), uint64_t{0});
    if (all == 0) return {};
    return failure("somebody else has given " + std::to_string(all) +
                   " of the points another class since they were edited here; these were left as they are, "
                   "the others are saved; save again to replace them");
}

} // namespace

void gatherClasses(const uint8_t* records, int64_t count, uint8_t* classes)
{
    for (int64_t i = 0; i < count; ++i)
        classes[i] = records[i * kRecordSize + kClassByte];
}

osg::ref_ptr<OctreeInfo> openOctree(const CellPlace& place)
{
    osg::ref_ptr<CellData> cell;
    osg::ref_ptr<OctreeInfo> octree;
    if (place.cell.lock(cell)) cell->octree.lock(octree);
    if (!octree && place.file) octree = findOpenOctree(place.file->identity());
    return octree;
}

Cell currentCell(const CellPlacePtr& place)
{
    Cell cell = UnwrittenClasses::instance().find(place->identifier);
    if (cell.current) return cell;

    cell.place = place;
    if (!place->file) return cell;
    cell.written = cell.current = shared(readClasses(*place->file, *place));
    return cell;
}

uint64_t differingBits(const uint8_t* a, const uint8_t* b, size_t count)
{
    constexpr uint64_t kLow = 0x7F7F7F7F7F7F7F7Fu;
    uint64_t bits = 0;
    for (size_t i = 0; i < count; i += 8) {
        uint64_t x = 0;
        uint64_t y = 0;
        std::memcpy(&x, a + i, std::min<size_t>(8, count - i));
        std::memcpy(&y, b + i, std::min<size_t>(8, count - i));
        const uint64_t d = x ^ y;
        const uint64_t highBits = (((d & kLow) + kLow) | d) & ~kLow; // of the bytes of d that are not zero
        bits |= ((highBits >> 7) * 0x0102040810204080u >> 56) << i;  // moved together
    }
    return bits;
}

size_t countDifferent(const uint8_t* a, const uint8_t* b, size_t count)
{
    size_t different = 0;
    for (size_t i = 0; i < count; i += 64)
        different += __builtin_popcountll(differingBits(a + i, b + i, std::min<size_t>(64, count - i)));
    return different;
}

size_t countDifferent(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b)
{
    return countDifferent(a.data(), b.data(), a.size());
}

std::map<std::string, uint64_t> countUnwrittenClasses()
{
    std::map<std::string, uint64_t> counts;
    for (const Cell& cell : UnwrittenClasses::instance().cells())
        counts[pathOf(*cell.place)] += countDifferent(*cell.written, *cell.current);
    return counts;
}

Status writeClassesToStores()
{
    std::map<VelBrx::FileIdentity, StoreToWrite> stores;
    for (const Cell& cell : UnwrittenClasses::instance().cells())
        stores[cell.place->file->identity()].add(cell);
    Status firstFailure;
    for (auto& [identity, store] : stores) {
        Status status = store.check();
        if (status) status = store.write();
        if (!status && firstFailure) firstFailure = status;
    }
    return firstFailure;
}
