#include "category/StoredClasses.h"

#include "edit/CellClasses.h"
#include "edit/StoreEdit.h"
#include "loading/PointRecords.h"

#include <VelBrx/EditJournal.h>
#include <VelBrx/File.h>
#include <VelBrx/FileWriter.h>
#include <VelBrx/MiraLasRead.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <optional>
#include <set>

using VelBrx::Status;

namespace {

using Cell = UnwrittenClasses::Cell;
using JournalPtr = std::shared_ptr<VelBrx::EditJournal>;

constexpr char kUnreadable[] = "cannot be read in places; restore it and save the classes again";

ClassesPtr shared(std::vector<uint8_t> classes)
{
    return std::make_shared<const std::vector<uint8_t>>(std::move(classes));
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
    Status saveJournals(const std::string& author, uint64_t& replaced);
    Status write(VelBrx::FileWriter& writer, const Cell& cell, uint64_t& replaced);
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

/// Writes the classes of a cell that differ from its records.
Status StoreToWrite::write(VelBrx::FileWriter& writer, const Cell& cell, uint64_t& replaced)
{
    Status status;
    std::vector<uint32_t> places;
    forEachRun(*_file, cell.place->pointDataStart, cell.place->segments,
               [&](uint8_t* records, int64_t count, uint32_t first) {
                   const uint8_t* current = cell.current->data() + first;
                   places.clear();
                   const uint64_t others =
                       findChanges(cell.written->data() + first, current, records, count, places);
                   const bool isTouched = others > 0 || !places.empty();
                   if (status && isTouched && !VelBrx::wasRead(records, count * kRecordSize))
                       status = failure(kUnreadable);
                   if (!status) return;
                   replaced += others;
                   const auto newClass = [&](size_t i, uint8_t) { return current[places[i]]; };
                   if (writer.set(records, kRecordSize, kClassByte, places.data(), places.size(), newClass) !=
                       places.size())
                       status = failure(writer.problem());
               });
    return status;
}

/// Forgets a cell that is on the disk. What somebody else wrote is what its next save begins with.
void StoreToWrite::settle(const Cell& cell, uint64_t replaced)
{
    if (replaced == 0) return UnwrittenClasses::instance().forget(cell.place->identifier);
    std::vector<uint8_t> inStore;
    if (!readClasses(*_file, *cell.place, inStore)) return;
    std::vector<uint8_t> wanted = *cell.current;
    for (size_t i = 0; i < wanted.size(); ++i)
        if ((*cell.written)[i] == wanted[i]) wanted[i] = inStore[i]; // nobody here has edited this point
    UnwrittenClasses::instance().set({cell.place, shared(std::move(inStore)), shared(std::move(wanted))});
}

/// What the journal is to save of a cell, whose classes in the store are `inStore`: points that somebody else
/// has given another class keep that. `replaced` grows by them.
EditedCell withoutReplaced(const std::vector<uint8_t>& inStore, const Cell& cell, uint64_t& replaced)
{
    const std::vector<uint8_t>& written = *cell.written;
    const std::vector<uint8_t>& current = *cell.current;
    if (countDifferent(inStore, written) == 0) return {cell.place, cell.current, cell.current};
    std::vector<uint8_t> saved = current;
    for (size_t i = 0; i < saved.size(); ++i) {
        if (written[i] == current[i] || inStore[i] == written[i] || inStore[i] == current[i]) continue;
        saved[i] = inStore[i];
        ++replaced;
    }
    return {cell.place, cell.current, shared(std::move(saved))};
}

/// Saves what is in journals; `_cells` are then those that were edited without one. Points that somebody else
/// has given another class are taken out of the save by a change of their own, and wanted again by another.
Status StoreToWrite::saveJournals(const std::string& author, uint64_t& replaced)
{
    std::set<JournalPtr> journals;
    std::map<JournalPtr, std::vector<EditedCell>> kept;
    std::vector<Cell> others;
    std::vector<uint8_t> inStore;
    for (const Cell& cell : _cells) {
        const JournalPtr& journal = cell.place->journal;
        if (!journal) {
            others.push_back(cell);
            continue;
        }
        journals.insert(journal);
        if (!readClasses(*_file, *cell.place, inStore)) return failure(kUnreadable);
        EditedCell saved = withoutReplaced(inStore, cell, replaced);
        if (saved.before != saved.after) kept[journal].push_back(std::move(saved));
    }
    if (journals.empty()) return {};
    VelBrx::EditDescription description;
    description.author = author;
    description.operation = R"({"op":"keepSaved"})";
    uint64_t change = 0;
    for (auto& [journal, cells] : kept)
        if (Status status = recordAndPublishClasses(cells, journal, description, change); !status)
            return status;
    for (const JournalPtr& journal : journals) {
        uint64_t points = 0;
        if (Status status = journal->save(author, points); !status) return status;
    }
    for (const Cell& cell : _cells)
        if (cell.place->journal) UnwrittenClasses::instance().forget(cell.place->identifier);
    description.operation = R"({"op":"classify"})";
    for (auto& [journal, cells] : kept) {
        for (EditedCell& cell : cells)
            std::swap(cell.before, cell.after);
        if (Status status = recordAndPublishClasses(cells, journal, description, change); !status)
            return status;
    }
    for (Cell& cell : others) {
        if (!readClasses(*_file, *cell.place, inStore)) return failure(kUnreadable);
        cell.written = shared(inStore); // the journal may have saved some of it
        UnwrittenClasses::instance().set(cell);
    }
    _cells = std::move(others);
    return {};
}

Status StoreToWrite::write()
{
    const osg::ref_ptr<OctreeInfo> octree = openOctree(*_cells.front().place);
    std::optional<StoreEditLock> lock;
    if (octree) lock.emplace(*octree);
    uint64_t replacedInAll = 0;
    const std::string author = octree ? octree->journalAuthor : std::string();
    if (Status status = saveJournals(author, replacedInAll); !status) return status;
    VelBrx::FileWriter writer(*_file);
    std::vector<uint64_t> replaced(_cells.size());
    for (size_t i = 0; i < _cells.size(); ++i)
        if (Status status = write(writer, _cells[i], replaced[i]); !status) return status;
    if (!_file->sync()) return failure("the disk reported an error; save the classes again");
    for (size_t i = 0; i < _cells.size(); ++i)
        settle(_cells[i], replaced[i]);
    replacedInAll = std::accumulate(replaced.begin(), replaced.end(), replacedInAll);
    if (replacedInAll == 0) return {};
    return failure("somebody else has given " + std::to_string(replacedInAll) +
                   " of the points another class since they were edited here; these were left as they are, "
                   "the others are saved; save again to replace them");
}

} // namespace

std::map<std::string, uint64_t> countUnwrittenClasses()
{
    std::map<std::string, uint64_t> counts;
    for (const Cell& cell : UnwrittenClasses::instance().cells())
        counts[pathOf(*cell.place)] += countDifferent(*cell.written, *cell.current);
    return counts;
}

Status writeClassesToStores(const std::set<VelBrx::FileIdentity>* only)
{
    std::map<VelBrx::FileIdentity, StoreToWrite> stores;
    for (const Cell& cell : UnwrittenClasses::instance().cells()) {
        const VelBrx::FileIdentity& file = cell.place->file->identity();
        if (!only || only->count(file)) stores[file].add(cell);
    }
    Status firstFailure;
    for (auto& [identity, store] : stores) {
        Status status = store.check();
        if (status) status = store.write();
        if (!status && firstFailure) firstFailure = status;
    }
    return firstFailure;
}
