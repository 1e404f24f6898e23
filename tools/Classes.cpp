#include "tools/Classes.h"

#include "terminal/ClassesFile.h"
#include "terminal/Text.h"
#include "tools/Command.h"
#include "tools/Talk.h"

#include <iostream>

void addClassesOption(CLI::App& command, std::string& file)
{
    command.add_option("--classes-file", file,
                       "names of the classes, a JSON file; classes.json beside FILE, or the user's, when not "
                       "given");
}

VelBrx::ClassTable classTableFor(const std::string& input, const std::string& file)
{
    ChosenClasses chosen;
    if (const VelBrx::Status read = chooseClasses(file, {input}, chosen); !read)
        throw CommandError(read.message());
    if (!chosen.warning.empty()) unlessQuiet(std::cerr) << "brx: " << printable(chosen.warning) << '\n';
    return chosen.table;
}
