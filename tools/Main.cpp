#include "tools/Command.h"

#include <exception>
#include <iostream>

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Builds, checks and describes octree stores of laser-scan points.", "brx");
    app.set_version_flag("--version", "brx " VELBRX_VERSION);
    app.require_subcommand(1);
    addBuildCommand(app);
    addInfoCommand(app);
    addVerifyCommand(app);
    try {
        app.parse(argc, argv);
        std::cout.flush();
        if (!std::cout) throw CommandError("standard output cannot be written; check the disk or the pipe");
        return 0;
    } catch (const CLI::ParseError& wrong) {
        if (wrong.get_exit_code() == 0) return app.exit(wrong); // --help and --version
        std::cerr << "brx: " << wrong.what() << "; see 'brx --help'\n";
        return kWrongUse;
    } catch (const std::exception& error) {
        std::cerr << "brx: " << error.what() << '\n';
        return kFailed;
    }
}
