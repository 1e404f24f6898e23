#pragma once

#include "viewer/display/ColorMode.h"
#include "viewer/display/NormalLight.h"

#include <VelBrx/Status.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What a host asks for in the option string of `osgDB::Options`.
struct PluginOptions
{
    ColorMode mode = ColorMode::AUTOMATIC;
    bool edl = false;
    int pointSize = 0; ///< pixels; 0: the library's default
    std::optional<uint64_t> budget;
    std::optional<std::string> normals;
    NormalLight light;
    std::vector<std::string> unknown; ///< words that no option has
};

/// An option as osgDB lists it.
struct PluginOption
{
    std::string name; ///< with what follows its equals sign
    std::string description;
};

std::vector<PluginOption> pluginOptions();

/// Reads words separated by blanks; a value with blanks is in double quotes. A failure names the option
/// and what was expected.
VelBrx::Status readPluginOptions(const std::string& text, PluginOptions& options);
