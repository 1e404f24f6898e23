#include "tools/Command.h"

#include "terminal/ShownName.h"
#include "terminal/Text.h"
#include "tools/Classes.h"
#include "tools/FolderInfo.h"
#include "tools/InfoText.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/PointCounts.h>
#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace {

using VelBrx::PointCounts;
using VelBrx::StoreInfo;

struct LevelSum
{
    uint64_t cells = 0;
    uint64_t points = 0;
};

std::vector<LevelSum> sumLevels(const StoreInfo& info)
{
    std::vector<LevelSum> levels(info.cells.back().level + size_t(1));
    for (const VelBrx::CellWithSegment& cell : info.cells) {
        ++levels[cell.level].cells;
        levels[cell.level].points += cell.pointCount;
    }
    return levels;
}

std::string hexadecimal(uint64_t value)
{
    std::ostringstream text;
    text << std::hex << std::setw(16) << std::setfill('0') << value;
    return text.str();
}

nlohmann::ordered_json infoJson(const StoreInfo& info, const PointCounts& counts)
{
    const VelBrx::BrxHeader& header = info.header;
    auto levels = nlohmann::ordered_json::array();
    for (const LevelSum& level : sumLevels(info))
        levels.push_back({{"level", levels.size()}, {"cells", level.cells}, {"points", level.points}});
    return {{"points", header.pointCount},
            {"cells", header.cellCount},
            {"levels", levels},
            {"bounds", {{"min", header.min}, {"max", header.max}}},
            {"scale", header.scale},
            {"offset", header.offset},
            {"coordinateSystem", header.coordinateSystem},
            {"crs", systemJson(header.projection)},
            {"storeId", hexadecimal(header.storeId)},
            {"formatVersion", header.formatVersion},
            {"hiddenPoints", counts.hidden},
            {"pointsByClass", histogramJson(counts.byClass.data(), counts.byClass.size())},
            {"pointsByReturn", histogramJson(counts.byReturn.data(), counts.byReturn.size())},
            {"pointsByNumberOfReturns",
             histogramJson(counts.byNumberOfReturns.data(), counts.byNumberOfReturns.size())}};
}

/// What the journal has, in a line.
std::string editsText(const std::string& path)
{
    VelBrx::EditHistory history;
    if (const VelBrx::Status read = readEditHistory(path, history); !read) return printable(read.message());
    if (history.entries.empty()) return "none";
    const VelBrx::EditEntry& last = history.entries.back();
    return grouped(history.entries.size()) + (history.entries.size() == 1 ? " entry" : " entries") +
           ", the last by " + shownName(last.author) + " at " + timeText(last.time);
}

void printInfo(const std::string& path, const StoreInfo& info, const PointCounts& counts,
               const VelBrx::ClassTable& names)
{
    const VelBrx::BrxHeader& header = info.header;
    printLine("points", header.pointCount);
    printLine("hidden points", counts.hidden);
    printLine("cells", header.cellCount);
    printPlace(header);
    printLine("coordinate system", systemText(header.projection));
    printLine("store id", hexadecimal(header.storeId));
    printLine("edits", editsText(path));
    printLine("format version", header.formatVersion);
    std::cout << "level       cells          points\n";
    size_t number = 0;
    for (const LevelSum& level : sumLevels(info))
        std::cout << std::right << std::setw(5) << number++ << std::setw(12) << level.cells << std::setw(16)
                  << level.points << '\n';
    printClasses(counts.byClass, names);
    printHistogram("points by return", counts.byReturn);
    printHistogram("points by number of returns", counts.byNumberOfReturns);
}

/// A damaged store is one all the same.
bool isOtherFile(const std::string& path)
{
    return std::filesystem::path(path).extension() != ".brx" && !VelBrx::isStore(path);
}

void runInfo(const std::string& path, const std::string& classesFile, bool json)
{
    const VelBrx::ClassTable names = classTableFor(path, classesFile);
    if (std::filesystem::is_directory(path)) return tellFolder(path, names, json);
    if (isOtherFile(path)) return tellLas(path, names, json);
    StoreInfo info;
    PointCounts counts;
    if (const VelBrx::Status read = readStoreInfo(path, info); !read) throw CommandError(read.message());
    if (const VelBrx::Status counted = countPoints(path, counts); !counted)
        throw CommandError(counted.message());
    if (json)
        printJson(infoJson(info, counts));
    else
        printInfo(path, info, counts, names);
}

} // namespace

void addInfoCommand(CLI::App& app)
{
    struct Options
    {
        std::string store;
        std::string classesFile;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand(
        "info", "Describe a store, a folder of stores, or a LAS, LAZ or COPC file: points, bounds, counts");
    command
        ->add_option("FILE", options->store,
                     "the store, a .brx file, a folder of stores, or a LAS, LAZ or COPC file")
        ->required();
    addClassesOption(*command, options->classesFile);
    command->add_flag("--json", options->json, "print one JSON object");
    command->callback([options] { runInfo(options->store, options->classesFile, options->json); });
}
