#include "plugin/PluginOptions.h"

#include "viewer/display/PointCount.h"

#include <VelOsgDBBrx/DefaultDisplay.h>

#include <charconv>

using VelBrx::Status;

namespace {

constexpr int kLargestPointSize = 64; ///< pixels

/// Takes the next word off the front of `text`; quotes are left out.
std::string takeWord(std::string& text)
{
    std::string word;
    bool quoted = false;
    size_t i = text.find_first_not_of(" \t");
    for (; i < text.size() && (quoted || (text[i] != ' ' && text[i] != '\t')); ++i) {
        if (text[i] == '"')
            quoted = !quoted;
        else
            word += text[i];
    }
    text.erase(0, i);
    return word;
}

bool readPointSize(const std::string& text, int& size)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    return error == std::errc() && end == text.data() + text.size() && size >= 1 && size <= kLargestPointSize;
}

bool readMode(const std::string& text, ColorMode& mode)
{
    for (const ColorModeChoice& choice : colorModeChoices()) {
        if (text != choice.name) continue;
        mode = choice.mode;
        return true;
    }
    return false;
}

Status readOption(const std::string& word, PluginOptions& options)
{
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const std::string value = equals == std::string::npos ? std::string() : word.substr(equals + 1);
    const auto expect = [&](bool read, const std::string& expected) {
        return read ? Status() : Status::failure("option " + word + ": expected " + expected);
    };
    if (word == "edl") {
        options.edl = true;
        return {};
    }
    if (name == "mode") return expect(readMode(value, options.mode), colorModeNames());
    if (name == "point-size") return expect(readPointSize(value, options.pointSize), "1 to 64 pixels");
    if (name == "budget")
        return expect(parsePointCount(value, options.budget.emplace()), "a number of points, such as 20M");
    if (name == "light")
        return expect(parseLight(value, options.light), "eye, off or AZIMUTH,HEIGHT of the sun in degrees");
    if (name == "normals") {
        options.normals = value;
        return expect(!value.empty(), "the name of a file");
    }
    options.unknown.push_back(word);
    return {};
}

} // namespace

std::vector<PluginOption> pluginOptions()
{
    const std::string size = std::to_string(VelOsgDBBrx::DefaultDisplay::kPointSize);
    return {{"mode=MODE", "Colour the points by " + colorModeNames() + ". Default: rgb, else elevation."},
            {"edl", "Shade the points by eye-dome lighting."},
            {"point-size=N", "Size of a point in pixels, 1 to 64. Default: " + size + "."},
            {"budget=N", "Largest number of points drawn in a context, such as 20M. Default: 100M."},
            {"normals=FILE", "Normals of the points, in double quotes where the name has blanks. Default: "
                             "STORE.normals where there is one."},
            {"light=LIGHT", "Light on the normals: eye (from where the camera stands), off, or "
                            "AZIMUTH,HEIGHT of the sun in degrees, such as 315,45. Default: eye."}};
}

Status readPluginOptions(const std::string& text, PluginOptions& options)
{
    std::string rest = text;
    while (rest.find_first_not_of(" \t") != std::string::npos)
        if (Status status = readOption(takeWord(rest), options); !status) return status;
    return {};
}
