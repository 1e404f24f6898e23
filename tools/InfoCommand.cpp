#include "tools/Command.h"

#include "terminal/Text.h"

#include <VelBrx/PointCounts.h>
#include <VelBrx/StoreInfo.h>

#include <nlohmann/json.hpp>

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
            {"storeId", hexadecimal(header.storeId)},
            {"formatVersion", header.formatVersion},
            {"hiddenPoints", counts.hidden},
            {"pointsByClass", histogramJson(counts.byClass.data(), counts.byClass.size())},
            {"pointsByReturn", histogramJson(counts.byReturn.data(), counts.byReturn.size())},
            {"pointsByNumberOfReturns",
             histogramJson(counts.byNumberOfReturns.data(), counts.byNumberOfReturns.size())}};
}

/// A line of the three values, each as `text(value, axis)` writes it.
template <class Text>
void printVector(const char* name, const double (&values)[3], Text text)
{
    std::cout << std::left << std::setw(20) << name;
    for (size_t axis = 0; axis < 3; ++axis)
        std::cout << (axis == 0 ? "" : " ") << text(values[axis], axis);
    std::cout << '\n';
}

template <size_t N>
void printHistogram(const char* title, const std::array<uint64_t, N>& counts)
{
    std::cout << title << '\n';
    for (size_t value = 0; value < N; ++value)
        if (counts[value] > 0)
            std::cout << "  " << std::right << std::setw(3) << value << std::setw(16) << counts[value]
                      << '\n';
}

void printInfo(const StoreInfo& info, const PointCounts& counts)
{
    const VelBrx::BrxHeader& header = info.header;
    const auto line = [](const char* name, const auto& value) {
        std::cout << std::left << std::setw(20) << name << value << '\n';
    };
    line("points", header.pointCount);
    line("hidden points", counts.hidden);
    line("cells", header.cellCount);
    const auto inSteps = [&](double value, size_t axis) { return coordinate(value, header.scale[axis]); };
    const auto whole = [](double value, size_t) { return shortest(value); };
    printVector("smallest x y z", header.min, inSteps);
    printVector("largest x y z", header.max, inSteps);
    printVector("scale", header.scale, whole);
    printVector("offset", header.offset, whole);
    line("coordinate system", header.coordinateSystem.empty() ? "none" : printable(header.coordinateSystem));
    line("store id", hexadecimal(header.storeId));
    line("format version", header.formatVersion);
    std::cout << "level       cells          points\n";
    size_t number = 0;
    for (const LevelSum& level : sumLevels(info))
        std::cout << std::right << std::setw(5) << number++ << std::setw(12) << level.cells << std::setw(16)
                  << level.points << '\n';
    printHistogram("points by class", counts.byClass);
    printHistogram("points by return", counts.byReturn);
    printHistogram("points by number of returns", counts.byNumberOfReturns);
}

void runInfo(const std::string& path, bool json)
{
    StoreInfo info;
    PointCounts counts;
    if (const VelBrx::Status read = readStoreInfo(path, info); !read) throw CommandError(read.message());
    if (const VelBrx::Status counted = countPoints(path, counts); !counted)
        throw CommandError(counted.message());
    if (json)
        printJson(infoJson(info, counts));
    else
        printInfo(info, counts);
}

} // namespace

void addInfoCommand(CLI::App& app)
{
    struct Options
    {
        std::string store;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("info", "Describe a store: points, cells, levels, bounds, counts");
    command->add_option("STORE", options->store, "the store, a .brx file")->required();
    command->add_flag("--json", options->json, "print one JSON object");
    command->callback([options] { runInfo(options->store, options->json); });
}
