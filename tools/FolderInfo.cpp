#include "tools/FolderInfo.h"

#include "terminal/Text.h"
#include "tools/Command.h"
#include "tools/InfoText.h"
#include "tools/Talk.h"

#include <VelBrx/FolderIndex.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <vector>

namespace {

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

    void add(const VelBrx::IndexedStore& store)
    {
        for (size_t axis = 0; axis < 3; ++axis) {
            const bool first = stores == 0;
            min[axis] = first ? store.min[axis] : std::min(min[axis], store.min[axis]);
            max[axis] = first ? store.max[axis] : std::max(max[axis], store.max[axis]);
            scale[axis] = first ? store.scale[axis] : std::min(scale[axis], store.scale[axis]);
        }
        ++stores;
        points += store.points;
        bytes += store.bytes;
        edits += store.edits;
        editedStores += store.edits > 0;
        unsavedEdits += store.unsavedEdits;
        for (size_t code = 0; code < byClass.size(); ++code)
            byClass[code] += store.statistics.pointsByClass[code];
    }
};

void printRemark(const VelBrx::FolderReport& report)
{
    if (!report.remark.empty()) unlessQuiet(std::cerr) << "brx: " << printable(report.remark) << '\n';
}

/// Reads the folder and says what is wrong with its index file.
VelBrx::FolderReport read(const std::string& folder, VelBrx::FolderIndex& index)
{
    VelBrx::FolderReport report;
    if (const VelBrx::Status read = readFolder(folder, index, report); !read)
        throw CommandError(read.message());
    if (index.stores.empty() && report.problems.empty())
        throw CommandError(folder + ": has no stores (.brx)");
    printRemark(report);
    return report;
}

FolderSummary summarise(const VelBrx::FolderIndex& index)
{
    FolderSummary all;
    std::vector<uint64_t> users(index.systems.size());
    for (const VelBrx::IndexedStore& store : index.stores) {
        all.add(store);
        ++users[store.system];
    }
    for (size_t i = 0; i < users.size(); ++i)
        all.systems[systemText(index.systems[i])] += users[i];
    return all;
}

/// Lists the stores that cannot be read, and fails where there are some.
void tellProblems(const std::string& folder, const std::vector<std::string>& problems)
{
    if (problems.empty()) return;
    for (const std::string& line : problems)
        std::cerr << "brx: " << printable(line) << '\n';
    throw CommandError(folder + ": " + std::to_string(problems.size()) +
                       (problems.size() == 1 ? " store" : " stores") + " cannot be read");
}

nlohmann::ordered_json folderJson(const FolderSummary& all, const std::vector<std::string>& bad)
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
            {"bad", bad}};
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
    VelBrx::FolderIndex index;
    const VelBrx::FolderReport report = read(folder, index);
    const FolderSummary all = summarise(index);
    if (json)
        printJson(folderJson(all, report.problems));
    else if (all.stores > 0)
        printFolder(all, names);
    tellProblems(folder, report.problems);
}

void addIndexCommand(CLI::App& app)
{
    const auto folder = std::make_shared<std::string>();
    CLI::App* const command =
        app.add_subcommand("index", "Write the index file of a folder of stores, or renew it");
    command->add_option("FOLDER", *folder, "the folder; stores in folders below it belong to it")->required();
    command->callback([folder] {
        if (!std::filesystem::is_directory(*folder)) throw CommandError(*folder + ": is no folder");
        VelBrx::FolderIndex index;
        const VelBrx::FolderReport report = read(*folder, index);
        if (const VelBrx::Status written = writeFolderIndex(*folder, index); !written)
            throw CommandError(written.message());
        unlessQuiet(std::cout) << VelBrx::folderIndexPath(*folder) << ": " << grouped(index.stores.size())
                               << " stores, " << grouped(report.opened) << " of them read, "
                               << grouped(report.removed) << " removed\n";
        tellProblems(*folder, report.problems);
    });
    command->footer(
        "With the file a folder of thousands of stores opens in seconds. What it says is used as far as "
        "size and time of the stores are still those of then, so it may be old, or missing. Only what "
        "changed since is read; several may write it at once.");
}
