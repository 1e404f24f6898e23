#include "tools/Command.h"

#include "terminal/Text.h"
#include "tools/Talk.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/Verify.h>

#include <nlohmann/json.hpp>

#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

void runVerify(const std::string& path, bool json)
{
    if (!std::ifstream(path)) throw CommandError(path + ": cannot be opened; check its name and permissions");
    std::vector<std::string> problems = VelBrx::verifyStore(path);
    const bool isStore = problems.empty() || VelBrx::isStore(path);
    const size_t ofStore = problems.size();
    if (isStore)
        for (const std::string& problem : VelBrx::verifyEdits(path))
            problems.push_back(problem);
    if (json)
        printJson({{"sound", problems.empty()}, {"problems", problems}});
    else if (problems.empty())
        unlessQuiet(std::cout) << printable(path) << ": sound\n";
    else if (isStore)
        for (const std::string& problem : problems)
            std::cout << printable(path) << ": " << printable(problem) << '\n';
    if (!isStore) throw CommandError(path + ": " + problems.front());
    if (ofStore > 0)
        throw CommandError(path + ": is damaged (problems found: " + std::to_string(problems.size()) +
                           "); restore it from a copy or build it anew");
    if (!problems.empty())
        throw CommandError(
            path + ": does not fit its journal of edits (problems found: " + std::to_string(problems.size()) +
            "); restore both from a copy, or move the journal away");
}

} // namespace

void addVerifyCommand(CLI::App& app)
{
    struct Options
    {
        std::string store;
        bool json = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("verify", "Check a store whole and name every problem");
    command->add_option("STORE", options->store, "the store, a .brx file")->required();
    command->add_flag("--json", options->json, "print one JSON object");
    command->callback([options] { runVerify(options->store, options->json); });
    command->footer(
        "A journal of edits beside the store is checked with it, and the store's points against it. "
        "The exit status is 0 when the store is sound and 1 when it is not, or is no store.");
}
