#include "tools/Command.h"

#include "terminal/Commit.h"
#include "terminal/LastWords.h"
#include "terminal/Text.h"
#include "tools/Talk.h"

#include <VelBrx/ReadErrors.h>

#include <csignal>
#include <exception>
#include <iostream>

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

/// The command that the user named; null without one.
const CLI::App* commandOf(const CLI::App& app)
{
    const std::vector<const CLI::App*> chosen =
        app.get_subcommands([](const CLI::App* command) { return command->parsed(); });
    return chosen.empty() ? nullptr : chosen.front();
}

/// What is wrong with the command line, and whose help says what is right.
std::string explain(const CLI::App& app, const CLI::ParseError& wrong, const std::string& firstWord)
{
    const CLI::App* const command = commandOf(app);
    if (command) return std::string(wrong.what()) + "; see 'brx " + command->get_name() + " --help'";
    std::string what = "a command is missing";
    if (!firstWord.empty()) what = firstWord + ": unknown " + (firstWord[0] == '-' ? "option" : "command");
    return what + "; see 'brx --help'";
}

/// Does what the command line says; the command's callback runs while it is parsed.
void run(CLI::App& app, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& end) {
        if (end.get_exit_code() != 0) throw;
        app.exit(end); // prints help or version
    }
    if (!std::cout.flush())
        throw CommandError("standard output cannot be written; check the disk or the pipe");
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGXFSZ, SIG_IGN); // writing beyond the limit of a file's size then fails like a full disk
    endInOneLine("brx");
    VelBrx::surviveReadErrors();
    CLI::App app("Builds, checks and describes octree stores of laser-scan points.", "brx");
    app.set_version_flag("--version", versionLine("brx"));
    app.require_subcommand(1);
    addBuildCommand(app);
    addExportCommand(app);
    addHistoryCommand(app);
    addIndexCommand(app);
    addInfoCommand(app);
    addNormalsCommand(app);
    addRevertCommand(app);
    addSampleCommand(app);
    addVerifyCommand(app);
    for (CLI::App* const command : app.get_subcommands(nullptr))
        command->add_flag("--quiet", isQuiet(), "print failures alone, and what was asked for");
    try {
        run(app, argc, argv);
        return 0;
    } catch (const CLI::ParseError& wrong) {
        std::cerr << "brx: " << printable(explain(app, wrong, argc > 1 ? argv[1] : "")) << '\n';
        return kWrongUse;
    } catch (const std::exception& error) {
        std::cerr << "brx: " << printable(error.what()) << '\n';
        return kFailed;
    }
}
