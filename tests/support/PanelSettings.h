#pragma once

#include "tests/support/TempFolder.h"

#include <filesystem>
#include <fstream>
#include <string>

/// Lets the next window that `ProgramWindow` opens in this folder have its panel, 300 pixels wide, with one
/// section unfolded.
inline void unfoldAlone(const TempFolder& folder, const std::string& section)
{
    const auto config = folder.path() / "config" / "brxview";
    std::filesystem::create_directories(config);
    std::ofstream settings(config / "settings.json");
    settings << R"({"hint.shown": true, "panel.width": 300, "panel.sections": {)";
    for (const std::string name :
         {"Clouds", "Classes", "History", "Tools", "View", "Section", "Look", "Surface"})
        settings << '"' << name << R"(": )" << (name == section ? "true" : "false") << ", ";
    settings << R"("Measure": )" << (section == "Measure" ? "true" : "false") << "}}";
}
