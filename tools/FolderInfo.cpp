#include "tools/FolderInfo.h"

#include "tools/Command.h"
#include "tools/InfoText.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/FolderFiles.h>
#include <VelBrx/StoreInfo.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <map>
#include <optional>
#include <thread>
#include <vector>

namespace {

using VelBrx::StoreInfo;

/// One store of the folder: why it cannot be read, or what it says.
struct StoreSummary
{
    VelBrx::Status status;
    StoreInfo info; ///< without its cells
    uint64_t bytes = 0;
    uint64_t edits = 0;
    uint64_t unsavedEdits = 0;
};

StoreSummary summaryOf(const std::string& path)
{
    StoreSummary summary;
    summary.status = readStoreInfo(path, summary.info);
    if (!summary.status) return summary;
    summary.info.cells = {}; // of thousands of stores they take much memory
    std::error_code error;
    summary.bytes = std::filesystem::file_size(path, error);
    VelBrx::EditHistory history;
    summary.status = readEditHistory(path, history);
    summary.edits = history.entries.size();
    for (const VelBrx::EditEntry& entry : history.entries)
        summary.unsavedEdits += entry.isUnsaved;
    return summary;
}

/// In the order of the paths; read by all processors, as most of it is waiting for the disk.
std::vector<StoreSummary> readAll(const std::vector<std::string>& paths)
{
    std::vector<StoreSummary> summaries(paths.size());
    std::atomic<size_t> next{0};
    const auto read = [&] {
        for (size_t i = next++; i < paths.size(); i = next++)
            summaries[i] = summaryOf(paths[i]);
    };
    std::vector<std::thread> others;
    for (unsigned i = 1; i < std::thread::hardware_concurrency(); ++i)
        others.emplace_back(read);
    read();
    for (std::thread& thread : others)
        thread.join();
    return summaries;
}

/// All stores of a folder that can be read, together.
struct FolderSummary
{
    uint64_t stores = 0;
    uint64_t points = 0;
    uint64_t bytes = 0;
    uint64_t edits = 0;
    uint64_t editedStores = 0;
    uint64_t unsavedEdits = 0;
    std::array<double, 3> min{};
    std::array<double, 3> max{};
    std::array<double, 3> scale{}; ///< the finest
    std::array<uint64_t, 256> byClass{};
    std::map<std::string, uint64_t> systems; ///< numbers of stores, by what people call their system
    std::vector<std::string> bad;            ///< lines

    void add(const StoreSummary& store)
    {
        const VelBrx::BrxHeader& header = store.info.header;
        for (size_t axis = 0; axis < 3; ++axis) {
            const bool first = stores == 0;
            min[axis] = first ? header.min[axis] : std::min(min[axis], header.min[axis]);
            max[axis] = first ? header.max[axis] : std::max(max[axis], header.max[axis]);
            scale[axis] = first ? header.scale[axis] : std::min(scale[axis], header.scale[axis]);
        }
        ++stores;
        points += header.pointCount;
        bytes += store.bytes;
        edits += store.edits;
        editedStores += store.edits > 0;
        unsavedEdits += store.unsavedEdits;
        for (size_t code = 0; code < byClass.size(); ++code)
            byClass[code] += store.info.statistics.pointsByClass[code];
        ++systems[systemText(header.projection)];
    }
};

FolderSummary summarise(const std::string& folder)
{
    std::vector<std::string> paths;
    if (const VelBrx::Status found = VelBrx::findFiles(folder, {".brx"}, paths); !found)
        throw CommandError(found.message());
    if (paths.empty()) throw CommandError(folder + ": has no stores (.brx)");
    FolderSummary all;
    for (const StoreSummary& store : readAll(paths)) {
        if (store.status)
            all.add(store);
        else
            all.bad.push_back(store.status.message());
    }
    return all;
}

nlohmann::ordered_json folderJson(const FolderSummary& all)
{
    return {{"stores", all.stores},
            {"points", all.points},
            {"bytes", all.bytes},
            {"bounds", {{"min", all.min}, {"max", all.max}}},
            {"systems", all.systems},
            {"edits", all.edits},
            {"editedStores", all.editedStores},
            {"unsavedEdits", all.unsavedEdits},
            {"pointsByClass", histogramJson(all.byClass.data(), all.byClass.size())},
            {"bad", all.bad}};
}

void printFolder(const FolderSummary& all, const VelBrx::ClassTable& names)
{
    const auto inSteps = [&](double value, size_t axis) { return coordinate(value, all.scale[axis]); };
    printLine("stores", all.stores);
    printLine("points", all.points);
    printLine("size", bytesText(all.bytes));
    printVector("smallest x y z", all.min, inSteps);
    printVector("largest x y z", all.max, inSteps);
    for (const auto& [system, stores] : all.systems)
        printLine("coordinate system",
                  system + (all.systems.size() > 1 ? ": " + std::to_string(stores) + " stores" : ""));
    printLine("edits", all.edits == 0 ? "none"
                                      : grouped(all.edits) + " in " + grouped(all.editedStores) +
                                            (all.editedStores == 1 ? " store, " : " stores, ") +
                                            grouped(all.unsavedEdits) + " not saved");
    std::cout << "as built: ";
    printClasses(all.byClass, names);
}

} // namespace

void tellFolder(const std::string& folder, const VelBrx::ClassTable& names, bool json)
{
    const FolderSummary all = summarise(folder);
    if (json)
        printJson(folderJson(all));
    else if (all.stores > 0)
        printFolder(all, names);
    if (all.bad.empty()) return;
    for (const std::string& line : all.bad)
        std::cerr << "brx: " << printable(line) << '\n';
    throw CommandError(folder + ": " + std::to_string(all.bad.size()) +
                       (all.bad.size() == 1 ? " store" : " stores") + " cannot be read");
}
