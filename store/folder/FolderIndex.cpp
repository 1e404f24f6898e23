#include <VelBrx/FolderIndex.h>

#include "store/StoreHead.h"
#include "store/folder/IndexFile.h"
#include "store/io/FileReader.h"
#include "store/io/OutputFile.h"
#include "store/io/ParallelFor.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/FolderFiles.h>
#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <sys/stat.h>
#include <time.h>

namespace VelBrx {

namespace fs = std::filesystem;

namespace {

using Stamp = IndexedStore::Stamp;

constexpr int64_t kSecond = 1000000000; // nanoseconds

/// File systems count time in steps, of up to two seconds: a file that changed so lately may change again
/// without another time.
constexpr int64_t kUncertain = 2 * kSecond;

int64_t nanoseconds(const timespec& time)
{
    return time.tv_sec * kSecond + time.tv_nsec;
}

Stamp stampOf(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return {};
    return {static_cast<uint64_t>(status.st_size), nanoseconds(status.st_mtim)};
}

bool isCertain(const Stamp& stamp, int64_t now)
{
    return now - stamp.modified >= kUncertain;
}

/// A store, or why it cannot be read.
struct ReadStore
{
    Status status;
    IndexedStore store;
    ProjectionRecords system;
};

/// Where the store has nearly all of its points. What cannot be read of them is left out.
GroundBox findBulk(const FileReader& file, const BrxHeader& header, const StoreIndex& index)
{
    constexpr int64_t kSize = PointRecord::kPointSize;
    constexpr int64_t kBlock = 1 << 16; ///< points
    GroundSpread spread;
    std::vector<uint8_t> records;
    int64_t points = 0;
    unsigned level = 0;
    for (const IndexCell& cell : index.cells) {
        if (cell.level > level && points >= GroundSpread::kEnough) break;
        level = cell.level;
        for (const Segment& run : cell.segments) {
            for (int64_t first = 0; first < run.count; first += kBlock) {
                const int64_t count = std::min(kBlock, run.count - first);
                records.resize(static_cast<size_t>(count * kSize));
                const int64_t start = header.pointDataStart + (run.first + first) * kSize;
                if (file.read(start, records.data(), records.size())) spread.add(records.data(), count);
            }
            points += run.count;
        }
    }
    return spread.bulk(header);
}

ReadStore readOne(const std::string& path, const std::string& name, int64_t now)
{
    ReadStore read;
    IndexedStore& store = read.store;
    store.name = name;
    // Before the files are read: what changes meanwhile has another stamp then.
    const Stamp file = stampOf(path);
    const Stamp journal = stampOf(journalPath(path));
    if (isCertain(file, now) && isCertain(journal, now)) {
        store.file = file;
        store.journal = journal;
    }
    store.bytes = file.bytes;
    FileReader reader;
    StoreHead head;
    StoreIndex index;
    EditHistory history;
    read.status = readStore(path, reader, head, index).of(path);
    if (read.status) read.status = readEditHistory(path, history);
    if (!read.status) return read;
    const BrxHeader& header = head.header;
    store.points = header.pointCount;
    std::copy_n(header.min, 3, store.min.begin());
    std::copy_n(header.max, 3, store.max.begin());
    std::copy_n(header.scale, 3, store.scale.begin());
    std::copy_n(header.offset, 3, store.offset.begin());
    store.bulk = findBulk(reader, header, index);
    store.statistics = std::move(index.statistics);
    store.edits = history.entries.size();
    for (const EditEntry& entry : history.entries)
        store.unsavedEdits += entry.isUnsaved;
    read.system = std::move(head.header.projection);
    return read;
}

/// The folder's index file; empty where it is of no use.
FolderIndex readIndexFile(const std::string& folder, std::string& remark)
{
    const std::string path = folderIndexPath(folder);
    FolderIndex index;
    std::error_code error;
    if (!fs::exists(path, error)) return index;
    FileReader file;
    Status read = file.open(path);
    if (read) {
        std::vector<uint8_t> bytes(static_cast<size_t>(file.size()));
        read = file.read(0, bytes.data(), bytes.size()) ? decodeIndexFile(bytes, index)
                                                        : Status::failure("cannot be read");
    }
    if (!read) remark = read.of(path).message() + "; the stores are read instead, brx index makes it anew";
    return index;
}

/// Gathers coordinate systems, each once.
class Systems
{
public:
    size_t add(const ProjectionRecords& system)
    {
        const auto isSame = [&](const ProjectionRecords& known) {
            return known.wkt == system.wkt && known.geoKeys == system.geoKeys &&
                   known.geoDoubles == system.geoDoubles && known.geoTexts == system.geoTexts;
        };
        // Neighbours mostly have the same one.
        if (_last < all.size() && isSame(all[_last])) return _last;
        _last = static_cast<size_t>(std::find_if(all.begin(), all.end(), isSame) - all.begin());
        if (_last == all.size()) all.push_back(system);
        return _last;
    }

    std::vector<ProjectionRecords> all;

private:
    size_t _last = 0;
};

/// What an index file has of the stores, by their names.
class KnownStores
{
public:
    explicit KnownStores(const FolderIndex& index)
    {
        for (const IndexedStore& store : index.stores)
            _byName[store.name] = &store;
    }

    /// Null where it has none of that name, or the files of the store are others by now.
    const IndexedStore* find(const std::string& path, const std::string& name) const
    {
        const auto known = _byName.find(name);
        if (known == _byName.end()) return nullptr;
        const IndexedStore& store = *known->second;
        const bool isSame = store.file.bytes > 0 && stampOf(path) == store.file &&
                            stampOf(journalPath(path)) == store.journal;
        return isSame ? &store : nullptr;
    }

private:
    std::unordered_map<std::string_view, const IndexedStore*> _byName;
};

} // namespace

std::string folderIndexPath(const std::string& folder)
{
    return (fs::path(folder) / "stores.brxindex").string();
}

Status readFolder(const std::string& folder, FolderIndex& index, FolderReport& report)
{
    std::vector<std::string> paths;
    if (Status found = findFiles(folder, {".brx"}, paths); !found) return found;
    report = {};
    const FolderIndex old = index.stores.empty() ? readIndexFile(folder, report.remark) : std::move(index);
    const KnownStores known(old);
    timespec clock{};
    clock_gettime(CLOCK_REALTIME, &clock);

    // Most of the time goes by waiting for the disk, or for another machine's.
    const unsigned threads = std::max(4u, std::thread::hardware_concurrency());
    static const std::atomic<bool> never{false};
    std::vector<const IndexedStore*> kept(paths.size());
    std::vector<ReadStore> read(paths.size());
    const Status done = parallelFor(threads, paths.size(), never, [&](size_t i) {
        const std::string name = fs::path(paths[i]).lexically_relative(folder).string();
        kept[i] = known.find(paths[i], name);
        if (!kept[i]) read[i] = readOne(paths[i], name, nanoseconds(clock));
        return Status();
    });
    if (!done) return done.of(folder);

    FolderIndex all;
    Systems systems;
    for (size_t i = 0; i < paths.size(); ++i) {
        report.opened += !kept[i];
        if (!kept[i] && !read[i].status) {
            report.problems.push_back(read[i].status.message());
            continue;
        }
        all.stores.push_back(kept[i] ? *kept[i] : std::move(read[i].store));
        all.stores.back().system = systems.add(kept[i] ? old.systems[kept[i]->system] : read[i].system);
    }
    all.systems = std::move(systems.all);
    std::vector<std::string_view> names;
    for (const std::string& path : paths)
        names.push_back(path);
    report.removed =
        static_cast<size_t>(std::count_if(old.stores.begin(), old.stores.end(), [&](const auto& store) {
            const std::string path = (fs::path(folder) / store.name).string();
            return !std::binary_search(names.begin(), names.end(), path);
        }));
    index = std::move(all);
    return {};
}

Status writeFolderIndex(const std::string& folder, const FolderIndex& index)
{
    const std::string path = folderIndexPath(folder);
    const std::vector<uint8_t> bytes = encodeIndexFile(index);
    OutputFile file;
    if (Status made = file.create(path, true, bytes.size()); !made) return made;
    if (Status written = file.write(0, bytes.data(), bytes.size()); !written) return written;
    return file.commit();
}

} // namespace VelBrx
