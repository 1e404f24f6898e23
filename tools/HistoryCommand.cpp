#include "tools/Command.h"

#include "terminal/ShallowJson.h"
#include "terminal/ShownName.h"
#include "terminal/Text.h"
#include "tools/Classes.h"
#include "tools/Talk.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelBrx/PointRecord.h>

#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;
using VelBrx::EditEntry;
using VelBrx::EditHistory;

constexpr int64_t kSecond = 1000000; ///< microseconds

/// Microseconds since 1970 of a date, or of a date and a time of day behind a T or a blank, UTC.
int64_t readTime(const std::string& option, const std::string& text)
{
    for (const char* form :
         {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        std::tm parts{};
        const char* rest = strptime(text.c_str(), form, &parts);
        if (!rest) continue;
        double fraction = 0;
        if (*rest == '.') {
            const auto [end, error] = std::from_chars(rest, text.c_str() + text.size(), fraction);
            if (error != std::errc()) continue;
            rest = end;
        }
        if (std::string(rest).empty() || std::string(rest) == "Z")
            return int64_t{timegm(&parts)} * kSecond + std::llround(fraction * double(kSecond));
    }
    throw CLI::ValidationError(option, "a time is written like 2026-11-22 or 2026-11-22T12:33:10, in UTC");
}

const char* kindName(EditEntry::Kind kind)
{
    const char* const names[] = {"change", "undo", "redo", "save"};
    return names[static_cast<size_t>(kind)];
}

Json operationJson(const EditEntry& entry)
{
    Json parsed = parseShallow<Json>(entry.operation);
    return parsed.is_discarded() ? Json(entry.operation) : parsed;
}

Json entryJson(const EditEntry& entry)
{
    Json json = {{"number", entry.number},
                 {"time", timeText(entry.time)},
                 {"author", entry.author},
                 {"kind", kindName(entry.kind)}};
    if (entry.kind == EditEntry::Kind::CHANGE) {
        json["operation"] = operationJson(entry);
        json["points"] = entry.points;
        json["field"] = entry.field == VelBrx::PointRecord::kClass ? "class" : "hidden";
        json["done"] = entry.isDone;
        json["saved"] = !entry.isUnsaved;
    } else if (entry.kind != EditEntry::Kind::SAVE)
        json["change"] = entry.change;
    if (entry.isUnfinished) json["unfinished"] = true;
    return json;
}

/// The class that the points of an entry became, as people read it; empty where its operation tells of none.
std::string newClass(const EditEntry& entry, const VelBrx::ClassTable& names)
{
    const Json operation = operationJson(entry);
    const auto to = operation.is_object() ? operation.find("to") : operation.end();
    return to != operation.end() && to->is_number_unsigned() ? " " + names.text(to->get<unsigned>()) : "";
}

/// What an entry did, in one line.
std::string entryText(const EditEntry& entry, const VelBrx::ClassTable& names)
{
    constexpr size_t kLongest = 100;
    std::ostringstream text;
    if (entry.kind == EditEntry::Kind::CHANGE) {
        std::string operation = printable(entry.operation);
        if (operation.size() > kLongest) operation = operation.substr(0, kLongest) + "...";
        text << entry.points << (entry.points == 1 ? " point" : " points")
             << (entry.field == VelBrx::PointRecord::kClass ? ", class" + newClass(entry, names)
                                                            : std::string(", hidden bits"));
        if (!operation.empty()) text << ": " << operation;
        if (!entry.isDone) text << " (undone)";
        if (entry.isUnsaved) text << " (not saved)";
    } else if (entry.kind == EditEntry::Kind::SAVE)
        text << "saved";
    else
        text << kindName(entry.kind) << " of " << entry.change;
    if (entry.isUnfinished) text << " (unfinished)";
    return text.str();
}

struct HistoryOptions
{
    std::string store;
    std::string since;
    std::string author;
    std::string script;
    std::string before;
    std::string classesFile;
    bool forget = false;
    bool json = false;
};

EditHistory readHistory(const std::string& store)
{
    EditHistory history;
    if (const VelBrx::Status read = VelBrx::readEditHistory(store, history); !read)
        throw CommandError(read.message());
    if (!history.exists && !std::ifstream(store))
        throw CommandError(store + ": cannot be opened; check its name and permissions");
    return history;
}

void printHistory(const HistoryOptions& options)
{
    const EditHistory history = readHistory(options.store);
    const int64_t since = options.since.empty() ? INT64_MIN : readTime("--since", options.since);
    const VelBrx::ClassTable names = classTableFor(options.store, options.classesFile);
    Json entries = Json::array();
    for (const EditEntry& entry : history.entries) {
        if (entry.time < since || (!options.author.empty() && entry.author != options.author)) continue;
        if (options.json)
            entries.push_back(entryJson(entry));
        else
            std::cout << std::setw(6) << entry.number << "  " << timeText(entry.time).substr(0, 19) << "  "
                      << shownName(entry.author) << "  " << entryText(entry, names) << '\n';
    }
    if (options.json)
        printJson({{"store", options.store},
                   {"state", history.state},
                   {"forgotten", history.forgotten},
                   {"entries", entries}});
    else if (history.entries.empty())
        std::cout << printable(options.store) << ": no edits are written down\n";
}

uint64_t readNumber(const std::string& text)
{
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        throw CLI::ValidationError("--script", "entries are written like 3..7, or 3 for one");
    return number;
}

/// The operations of the edits in effect as one list, which brxview --script replays.
void printScript(const HistoryOptions& options)
{
    const size_t dots = options.script.find("..");
    const uint64_t first = readNumber(options.script.substr(0, dots));
    const uint64_t last = dots == std::string::npos ? first : readNumber(options.script.substr(dots + 2));
    const EditHistory history = readHistory(options.store);
    std::vector<uint64_t> changes;
    if (const VelBrx::Status found = effectiveEdits(history, first, last, changes); !found)
        throw CommandError(VelBrx::journalPath(options.store) + ": " + found.message());
    Json script = Json::array();
    for (const uint64_t number : changes) {
        const EditEntry& entry = history.entries[number - history.forgotten - 1];
        const Json operation = operationJson(entry);
        if (operation.is_array())
            script.insert(script.end(), operation.begin(), operation.end());
        else if (operation.is_object())
            script.push_back(operation);
        else
            throw CommandError(VelBrx::journalPath(options.store) + ": edit " + std::to_string(number) +
                               " was not made by an operation of a script and cannot be replayed");
    }
    printJson(script);
}

void forget(const HistoryOptions& options)
{
    uint64_t forgotten = 0;
    const int64_t before = readTime("--before", options.before);
    if (const VelBrx::Status done = VelBrx::forgetEdits(options.store, before, forgotten); !done)
        throw CommandError(done.message());
    unlessQuiet(std::cout) << printable(options.store) << ": " << forgotten
                           << (forgotten == 1 ? " entry" : " entries") << " forgotten\n";
}

void runRevert(const std::string& path, uint64_t entry, const std::string& author)
{
    std::shared_ptr<VelBrx::EditJournal> journal;
    const auto check = [](const VelBrx::Status& status) {
        if (!status) throw CommandError(status.message());
    };
    check(VelBrx::EditJournal::open(path, journal));
    if (const uint64_t finished = journal->recovery().pointsFinished)
        unlessQuiet(std::cerr) << "brx: " << printable(path)
                               << ": an edit that was broken off was finished: " << finished << " points\n";
    uint64_t state = 0;
    uint64_t points = 0;
    check(journal->findState(entry, state));
    if (const VelBrx::Status moved = journal->moveTo(state, author, nullptr, points); !moved)
        throw CommandError(moved.message() + "; the store is as edit " + std::to_string(journal->state()) +
                           " left it");
    check(journal->save(author, points));
    check(journal->checkpoint());
    unlessQuiet(std::cout) << printable(path) << ": is as behind entry " << entry << "; " << points
                           << " values of points changed\n";
}

} // namespace

void addHistoryCommand(CLI::App& app)
{
    const auto options = std::make_shared<HistoryOptions>();
    CLI::App* const command = app.add_subcommand("history", "List the edits of a store");
    command->add_option("STORE", options->store, "the store, a .brx file")->required();
    CLI::Option* const json = command->add_flag("--json", options->json, "print one JSON object");
    CLI::Option* const since =
        command->add_option("--since", options->since, "entries from this time on, such as 2026-11-22T12:30");
    CLI::Option* const by = command->add_option("--by", options->author, "entries of this author");
    addClassesOption(*command, options->classesFile);
    CLI::Option* const script =
        command->add_option("--script", options->script,
                            "print the edits in effect of the entries N..M as a script for brxview --script");
    CLI::Option* const forgetting =
        command->add_flag("--forget", options->forget, "leave out old entries, which cannot be undone then");
    CLI::Option* const before =
        command->add_option("--before", options->before, "with --forget: entries before this time");
    script->excludes(json)->excludes(since)->excludes(by)->excludes(forgetting);
    forgetting->needs(before)->excludes(json)->excludes(since)->excludes(by);
    before->needs(forgetting);
    command->callback([options] {
        if (options->forget)
            forget(*options);
        else if (!options->script.empty())
            printScript(*options);
        else
            printHistory(*options);
    });
    command->footer(
        "Edits are in STORE.edits beside the store. Times are UTC. Forgotten are the oldest entries, as "
        "far as no kept one undoes or redoes them.");
}

void addRevertCommand(CLI::App& app)
{
    struct Options
    {
        std::string store;
        uint64_t entry = 0;
        std::string author;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        app.add_subcommand("revert", "Bring a store back to an earlier state, or forward again");
    command->add_option("STORE", options->store, "the store, a .brx file")->required();
    command
        ->add_option("--to", options->entry,
                     "the entry of brx history behind which the store was so; 0: no edits")
        ->required();
    command->add_option("--author", options->author, "who does it (default: the login name)");
    command->callback([options] { runRevert(options->store, options->entry, options->author); });
    command->footer(
        "Edits are undone and redone one by one, and written down as such: nothing is lost, and any "
        "entry of the history can be reverted to later. Classes that were not saved are saved, where "
        "that state has them. An edit whose points something else has changed meanwhile ends it.");
}
