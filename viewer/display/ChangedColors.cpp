#include "viewer/display/ChangedColors.h"

#include "viewer/display/Palettes.h"

#include <VelOsgDBBrx/DefaultDisplay.h>
#include <VelOsgDBBrx/EditLens.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <map>
#include <set>
#include <tuple>

using VelBrx::EditEntry;
using VelBrx::Status;
using VelOsgDBBrx::EditLens;

namespace {

using Edits = std::vector<EditEntry>; ///< of a store, in effect, oldest first

const osg::Vec4f kUntouched(0.42f, 0.42f, 0.42f, 1);
const osg::Vec4f kOlder(0.55f, 0.5f, 0.75f, 1);
constexpr size_t kMostEntries = 12; ///< in the legend
constexpr int kTimes = 5;           ///< beside the ramp
constexpr int64_t kSecond = 1000000;

/// One operation, which may have edited several stores.
using Step = std::tuple<int64_t, std::string, std::string>; ///< time, author, operation

Step stepOf(const EditEntry& edit)
{
    return {edit.time, edit.author, edit.operation};
}

/// "11-22 14:05:12", UTC.
std::string timeText(int64_t time)
{
    const auto seconds = static_cast<std::time_t>(time / kSecond);
    std::tm parts{};
    char text[32] = "?";
    if (gmtime_r(&seconds, &parts)) std::strftime(text, sizeof text, "%m-%d %H:%M:%S", &parts);
    return text;
}

/// The value of "op" in an operation of a script.
std::string nameOfOperation(const std::string& operation)
{
    const std::string key = "\"op\":\"";
    const size_t found = operation.find(key);
    if (found == std::string::npos) return "edit";
    const size_t start = found + key.size();
    return operation.substr(start, operation.find('"', start) - start);
}

/// The colours of one store's marks: of points that no edit touched, then of each edit.
template <class ColorOf>
std::vector<osg::Vec4f> colorsOf(const Edits& edits, ColorOf colorOf)
{
    std::vector<osg::Vec4f> colors = {kUntouched};
    std::transform(edits.begin(), edits.end(), std::back_inserter(colors), colorOf);
    return colors;
}

/// What a colour each stands for, and the colours that come of it.
struct Chosen
{
    Legend legend;
    std::vector<std::vector<osg::Vec4f>> colors; ///< by store
};

Chosen chooseByEntry(const std::vector<Edits>& stores)
{
    std::map<Step, uint64_t> points;
    for (const Edits& edits : stores)
        for (const EditEntry& edit : edits)
            points[stepOf(edit)] += edit.points;
    Chosen chosen;
    chosen.legend.title = "newest edits";
    std::map<Step, osg::Vec4f> colors;
    for (auto step = points.rbegin(); step != points.rend() && colors.size() < kMostEntries; ++step) {
        const osg::Vec4f color = distinctColor(colors.size());
        colors[step->first] = color;
        chosen.legend.entries.push_back(
            {color, timeText(std::get<0>(step->first)) + "  " + std::get<1>(step->first) + "  " +
                        nameOfOperation(std::get<2>(step->first)) + ", " + std::to_string(step->second)});
    }
    if (points.size() > colors.size())
        chosen.legend.entries.push_back(
            {kOlder, std::to_string(points.size() - colors.size()) + " older edits"});
    for (const Edits& edits : stores)
        chosen.colors.push_back(colorsOf(edits, [&](const EditEntry& edit) {
            const auto found = colors.find(stepOf(edit));
            return found == colors.end() ? kOlder : found->second;
        }));
    return chosen;
}

Chosen chooseByAuthor(const std::vector<Edits>& stores)
{
    std::set<std::string> authors;
    for (const Edits& edits : stores)
        for (const EditEntry& edit : edits)
            authors.insert(edit.author);
    Chosen chosen;
    chosen.legend.title = "author of the last edit";
    std::map<std::string, osg::Vec4f> colors;
    for (const std::string& author : authors) {
        const osg::Vec4f color = distinctColor(colors.size());
        colors[author] = color;
        chosen.legend.entries.push_back({color, author});
    }
    for (const Edits& edits : stores)
        chosen.colors.push_back(
            colorsOf(edits, [&](const EditEntry& edit) { return colors.at(edit.author); }));
    return chosen;
}

osg::Vec4f colorAt(const std::vector<VelOsgDBBrx::ColorEntry>& ramp, float position)
{
    for (size_t i = 1; i < ramp.size(); ++i) {
        const float low = ramp[i - 1].position;
        const float high = ramp[i].position;
        if (position > high || low >= high) continue;
        return ramp[i - 1].color + (ramp[i].color - ramp[i - 1].color) * ((position - low) / (high - low));
    }
    return ramp.back().color;
}

Chosen chooseByAge(const std::vector<Edits>& stores)
{
    int64_t oldest = INT64_MAX;
    int64_t newest = INT64_MIN;
    for (const Edits& edits : stores)
        for (const EditEntry& edit : edits) {
            oldest = std::min(oldest, edit.time);
            newest = std::max(newest, edit.time);
        }
    Chosen chosen;
    chosen.legend.title = "time of the last edit, UTC";
    const std::vector<VelOsgDBBrx::ColorEntry> ramp = VelOsgDBBrx::DefaultDisplay::ramp({}).entries;
    if (oldest < newest) {
        chosen.legend.ramp = ramp;
        for (int64_t i = 0; i < kTimes; ++i)
            chosen.legend.numbers.push_back(timeText(oldest + (newest - oldest) / (kTimes - 1) * i));
    } else if (oldest == newest)
        chosen.legend.entries.push_back({ramp.back().color, timeText(oldest)});
    const double span = static_cast<double>(newest) - static_cast<double>(oldest);
    for (const Edits& edits : stores)
        chosen.colors.push_back(colorsOf(edits, [&](const EditEntry& edit) {
            return colorAt(ramp,
                           span > 0 ? static_cast<float>(static_cast<double>(edit.time - oldest) / span) : 1);
        }));
    return chosen;
}

Chosen chooseBuilt(size_t stores)
{
    Chosen chosen;
    chosen.legend.title = "differs from as built";
    chosen.legend.entries = {
        {distinctColor(0), "hidden, or no more"}, {distinctColor(1), "class"}, {distinctColor(2), "both"}};
    std::vector<osg::Vec4f> colors = {kUntouched};
    for (const Legend::Entry& entry : chosen.legend.entries)
        colors.push_back(entry.color);
    chosen.colors.assign(stores, colors);
    return chosen;
}

Chosen choose(const std::vector<Edits>& stores, ChangedBy by)
{
    switch (by) {
    case ChangedBy::AUTHOR:
        return chooseByAuthor(stores);
    case ChangedBy::AGE:
        return chooseByAge(stores);
    case ChangedBy::BUILT:
        return chooseBuilt(stores.size());
    default:
        return chooseByEntry(stores);
    }
}

} // namespace

const std::vector<std::string>& changedByNames()
{
    static const std::vector<std::string> names = {"entry", "author", "age", "built"};
    return names;
}

std::optional<ChangedBy> namedChangedBy(const std::string& name)
{
    const auto& names = changedByNames();
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<ChangedBy>(found - names.begin());
}

std::string nameOf(ChangedBy by)
{
    return changedByNames()[static_cast<size_t>(by)];
}

Status ChangedColors::apply(const std::vector<VelOsgDBBrx::IPointCloud*>& clouds, ChangedBy by)
{
    std::vector<Edits> stores(clouds.size());
    Status status;
    for (size_t i = 0; i < clouds.size(); ++i) {
        OctreeInfo& octree = *clouds[i]->getOctree();
        const Status shown =
            by == ChangedBy::BUILT ? EditLens::showBuilt(octree) : EditLens::showEdits(octree, stores[i]);
        if (status) status = shown;
    }
    const Chosen chosen = choose(stores, by);
    for (size_t i = 0; i < clouds.size(); ++i)
        VelOsgDBBrx::ShaderHelper::changedColorShader(clouds[i], chosen.colors[i]);
    _legend = chosen.legend;
    if (!status)
        _legend.remark = status.message();
    else if (_legend.entries.empty() && _legend.ramp.empty())
        _legend.remark = "no edits are written down";
    return status;
}

void ChangedColors::end(const std::vector<VelOsgDBBrx::IPointCloud*>& clouds)
{
    for (VelOsgDBBrx::IPointCloud* cloud : clouds)
        EditLens::end(*cloud->getOctree());
}
