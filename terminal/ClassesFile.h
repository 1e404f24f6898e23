#pragma once

#include <VelBrx/ClassTable.h>
#include <VelBrx/Status.h>

#include <string>
#include <vector>

/// \name Files of class names and colours
/// JSON: {"classes": [{"code": 2, "name": "Ground", "color": "#b5834a"}, ...]}; name and colour may be left
/// out. What a file does not say is as in the standard. A failure names the file and the place in it.
/// @{

VelBrx::Status readClasses(const std::string& file, VelBrx::ClassTable& table);

/// Writes the classes that are the table's own.
VelBrx::Status writeClasses(const std::string& file, const VelBrx::ClassTable& table);
/// @}

/// The names and colours that a program shows, and where they come from.
struct ChosenClasses
{
    VelBrx::ClassTable table;
    std::string file;    ///< empty: the standard's
    std::string warning; ///< a line for people: what is wrong with a file that nobody asked for; or empty
};

/// The user's own file; empty where the home folder is not known.
std::string userClassesFile();

/// Reads the classes of `file` where that is not empty; else those of classes.json beside the first of the
/// stores that has one, else the user's, else the standard's. Fails only for a file that was asked for.
VelBrx::Status chooseClasses(const std::string& file, const std::vector<std::string>& stores,
                             ChosenClasses& chosen);
