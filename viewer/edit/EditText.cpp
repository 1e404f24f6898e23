#include "viewer/edit/EditText.h"

#include "terminal/ShownName.h"
#include "terminal/Text.h"
#include "viewer/display/Palettes.h"

#include <algorithm>

namespace {

constexpr size_t kClassLines = 16; ///< more would not fit beside the picture

std::string points(uint64_t number)
{
    return grouped(number) + (number == 1 ? " point" : " points");
}

std::vector<std::string> describe(const VelOsgDBBrx::CategoryCounts& counts)
{
    std::vector<std::string> lines;
    for (size_t code = 0; code < counts.before.size(); ++code) {
        const uint64_t before = counts.before[code];
        const uint64_t after = counts.after[code];
        if (before == 0 && after == 0) continue;
        if (lines.size() == kClassLines) {
            lines.push_back("  ...");
            break;
        }
        lines.push_back("  class " + classText(static_cast<unsigned>(code)) + ": " + grouped(before) +
                        (before == after ? "" : " -> " + grouped(after)));
    }
    return lines;
}

} // namespace

std::vector<std::string> describe(const VelOsgDBBrx::EditOutcome& outcome)
{
    std::vector<std::string> lines;
    if (outcome.ok && outcome.classes)
        lines.push_back(outcome.operation + ": " + grouped(outcome.points) + " of " +
                        points(outcome.classes->selected));
    else if (outcome.ok && outcome.points == 0 && (outcome.isOwn || !outcome.message.empty()))
        lines.push_back(outcome.operation + (outcome.message.empty() ? ": done" : ":"));
    else if (outcome.ok || outcome.points > 0)
        lines.push_back(outcome.operation + ": " + points(outcome.points));
    else
        lines.push_back(outcome.operation + ": not done");
    if (!outcome.message.empty()) lines.push_back(outcome.message);
    if (outcome.classes) {
        const std::vector<std::string> byClass = describe(*outcome.classes);
        lines.insert(lines.end(), byClass.begin(), byClass.end());
    }
    return lines;
}

std::vector<std::string> describe(const std::vector<VelOsgDBBrx::EditStep>& steps)
{
    constexpr size_t kDay = 10;    // letters of a date
    constexpr size_t kMinute = 16; // and of a date and a time of day
    std::vector<std::string> lines;
    for (const VelOsgDBBrx::EditStep& step : steps) {
        std::string time = timeText(step.time).substr(0, kMinute);
        time[kDay] = ' ';
        lines.push_back(time + "  " + shownName(step.author) + "  " + printable(step.name) +
                        (step.isOwn ? "" : ", " + points(step.points)) + (step.isDone ? "" : "  (undone)") +
                        (step.isUnsaved ? "  (not saved)" : ""));
    }
    return lines;
}

uint64_t totalOf(const std::map<std::string, uint64_t>& pointsByStore)
{
    uint64_t total = 0;
    for (const auto& store : pointsByStore)
        total += store.second;
    return total;
}

std::vector<std::string> describeUnsaved(const std::map<std::string, uint64_t>& unsaved)
{
    std::vector<std::string> lines;
    for (const auto& [store, count] : unsaved)
        if (count > 0) lines.push_back(store + ": the classes of " + points(count) + " are not saved");
    return lines;
}

std::string describeLost(uint64_t count)
{
    return "the changed classes of " + points(count) + " are lost: no journal of their store keeps them";
}

std::string describeHidden(uint64_t hidden, const std::vector<std::string>& stores, size_t all)
{
    if (stores.empty()) return "";
    const std::string where =
        all == 1 ? " of " + stores.front()
                 : " in " + std::to_string(stores.size()) + " of " + std::to_string(all) + " stores";
    return points(hidden) + where + (hidden == 1 ? " is" : " are") + " hidden";
}

std::vector<std::string> firstOf(std::vector<std::string> lines)
{
    constexpr size_t kMost = 5;
    if (lines.size() <= kMost) return lines;
    const std::string more = grouped(lines.size() - kMost) + " more; standard error names all";
    lines.resize(kMost);
    lines.push_back(more);
    return lines;
}

std::string namesOf(const std::vector<std::string>& files)
{
    constexpr size_t kNamed = 3;
    std::string names;
    for (size_t i = 0; i < std::min(files.size(), kNamed); ++i)
        names += (i > 0 ? ", " : "") + files[i];
    return files.size() <= kNamed ? names : names + " and " + std::to_string(files.size() - kNamed) + " more";
}
