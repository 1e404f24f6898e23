#include "viewer/scene/Options.h"

#include "terminal/ClassList.h"
#include "viewer/display/Palettes.h"
#include "viewer/display/PointCount.h"
#include "viewer/scene/InputFiles.h"

#include <VelOsgDBBrx/DefaultDisplay.h>

#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>

using VelBrx::Status;

namespace {

/// Takes `name` and its value out of the arguments; empty when the option is not there.
Status takeValue(osg::ArgumentParser& arguments, const std::string& name, std::optional<std::string>& value)
{
    const int position = arguments.find(name);
    if (position <= 0) return Status();
    if (position + 1 >= arguments.argc()) return Status::failure(name + " needs a value; see brxview --help");
    value = arguments[position + 1];
    arguments.remove(position, 2);
    return Status();
}

/// A whole text as a number; false for anything else, infinities and NaN included.
bool parse(const std::string& text, double& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
}

bool parse(const std::string& text, int low, int high, int& number)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < low || value > high) return false;
    number = value;
    return true;
}

bool parse(const std::string& text, char separator, std::vector<double>& numbers)
{
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(separator, begin), text.size());
        double number = 0;
        if (!parse(text.substr(begin, end - begin), number)) return false;
        numbers.push_back(number);
        begin = end + 1;
    }
    return true;
}

/// Such as 4G or 800M.
bool parseBytes(std::string text, std::optional<uint64_t>& bytes)
{
    double unit = 1;
    for (const char letter : {'K', 'M', 'G', 'T'}) {
        unit *= 1000;
        if (text.empty() || std::toupper(static_cast<unsigned char>(text.back())) != letter) continue;
        text.pop_back();
        double number = 0;
        if (!parse(text, number) || number * unit < kLeastMemory || number * unit > kLargestMemory)
            return false;
        bytes = static_cast<uint64_t>(number * unit);
        return true;
    }
    return false;
}

/// fixed, spacing, or spacing and a factor.
bool parse(const std::string& text, PointSizing& sizing)
{
    const std::string kSpacing = "spacing";
    sizing.bySpacing = text.compare(0, kSpacing.size(), kSpacing) == 0;
    if (text == kSpacing || text == "fixed") return true;
    return sizing.bySpacing && text[kSpacing.size()] == ',' &&
           parse(text.substr(kSpacing.size() + 1), sizing.factor) && sizing.factor > 0 &&
           sizing.factor <= kLargestSizeFactor;
}

bool parse(const std::string& text, ColorMode& mode)
{
    const std::optional<ColorMode> named = namedColorMode(text);
    mode = named.value_or(mode);
    return named.has_value();
}

bool parse(const std::string& text, ChangedBy& by)
{
    const std::optional<ChangedBy> named = namedChangedBy(text);
    by = named.value_or(by);
    return named.has_value();
}

/// #rrggbb, or red,green,blue from 0 to 255.
bool parse(const std::string& text, osg::Vec4f& color)
{
    if (const std::optional<osg::Vec4f> hexadecimal = colorOf(text)) {
        color = *hexadecimal;
        return true;
    }
    std::vector<double> channels;
    if (!parse(text, ',', channels) || channels.size() != 3) return false;
    for (size_t i = 0; i < channels.size(); ++i) {
        if (channels[i] < 0 || channels[i] > 255) return false;
        color[static_cast<unsigned>(i)] = std::floor(static_cast<float>(channels[i])) / 255.0f;
    }
    color.a() = 1;
    return true;
}

/// top, north, iso, all, or the nine coordinates of eye, centre and up.
bool parse(const std::string& text, CameraView& view)
{
    if (const std::optional<CameraView> named = namedView(text)) {
        view = *named;
        return true;
    }
    std::vector<double> v;
    if (!parse(text, ',', v) || v.size() != 9) return false;
    view.kind = CameraView::LOOK;
    view.look = {osg::Vec3d(v[0], v[1], v[2]), osg::Vec3d(v[3], v[4], v[5]), osg::Vec3d(v[6], v[7], v[8])};
    return ((view.look.center - view.look.eye) ^ view.look.up).length2() > 0;
}

bool parse(const std::string& text, PictureSize& size)
{
    const size_t separator = text.find('x');
    return separator != std::string::npos &&
           parse(text.substr(0, separator), 1, kLargestPicture, size.width) &&
           parse(text.substr(separator + 1), 1, kLargestPicture, size.height);
}

/// Takes an option out of the arguments and hands its value to `accept`, which returns false for a value that
/// is none; `expected` then says what is.
template <class Accept>
Status takeOption(osg::ArgumentParser& arguments, const std::string& name, const std::string& expected,
                  Accept accept)
{
    std::optional<std::string> value;
    if (const Status status = takeValue(arguments, name, value); !status) return status;
    if (!value || accept(*value)) return Status();
    return Status::failure(name + " " + *value + ": expected " + expected);
}

Status readHeadless(osg::ArgumentParser& arguments, Options& options)
{
    HeadlessRequest request;
    bool timed = false;
    const auto picture = [&](const std::string& text) {
        request.picture = text;
        return !text.empty();
    };
    const auto script = [&](const std::string& text) {
        request.script = text;
        return !text.empty();
    };
    const auto size = [&](const std::string& text) { return request.sized = parse(text, request.size); };
    const auto timeout = [&](const std::string& text) {
        timed = true;
        return parse(text, request.timeoutSeconds) && request.timeoutSeconds > 0 &&
               request.timeoutSeconds <= kLongestTimeout;
    };
    Status status = takeOption(arguments, "--render", "the name of a picture", picture);
    if (status) status = takeOption(arguments, "--script", "the name of a file", script);
    if (status) status = takeOption(arguments, "--size", "WIDTHxHEIGHT, such as 1920x1080", size);
    if (status) status = takeOption(arguments, "--timeout", "a number of seconds", timeout);
    if (!status) return status;
    if (!request.picture.empty() && !request.script.empty())
        return Status::failure("--render and --script exclude each other; a script has a render operation");
    if (!request.picture.empty() || !request.script.empty())
        options.headless = request;
    else if (request.sized || timed)
        return Status::failure("--size and --timeout belong to --render OUT.png and --script FILE");
    return Status();
}

Status readSurface(osg::ArgumentParser& arguments, SurfaceLook& surface)
{
    const auto classes = [&](const std::string& text) {
        const std::optional<ClassSet> codes = parseClasses(text);
        surface.classes = codes.value_or(surface.classes);
        return codes && codes->any();
    };
    const auto contours = [&](const std::string& text) {
        const bool isNumber = parse(text, surface.interval);
        surface.contours = surface.interval > 0;
        return isNumber && surface.interval >= 0 && surface.interval <= kLargestInterval;
    };
    Status status = takeOption(arguments, "--surface-classes", "codes of classes, such as 2 or 2,9", classes);
    if (status)
        status = takeOption(arguments, "--contours", "an interval up to 10000, 0 for no lines", contours);
    return status;
}

} // namespace

Status readOptions(osg::ArgumentParser& arguments, Options& options)
{
    const auto into = [](auto& target) {
        return [&](const std::string& text) { return parse(text, target); };
    };
    const auto pointSize = [&](const std::string& text) {
        return parse(text, 1, kLargestPointSize, options.pointSize);
    };
    const auto budget = [&](const std::string& text) {
        return parsePointCount(text, options.budget.emplace());
    };
    const auto memory = [&](const std::string& text) { return parseBytes(text, options.memory); };
    const auto upTo = [](double& target, double largest) {
        return [&target, largest](const std::string& text) {
            return parse(text, target) && target > 0 && target <= largest;
        };
    };
    const auto mode = [&](const std::string& text) {
        options.surface.on = text == "surface";
        return parse(options.surface.on ? "class" : text, options.mode);
    };
    const auto normals = [&](const std::string& text) {
        options.normals = text;
        return !text.empty();
    };
    const auto author = [&](const std::string& text) {
        options.author = text;
        return !text.empty();
    };
    const auto store = [&](const std::string& text) {
        options.store = text;
        return !text.empty();
    };
    const auto classesFile = [&](const std::string& text) {
        options.classesFile = text;
        return !text.empty();
    };
    options.force = arguments.read("--force");
    options.editAnyway = arguments.read("--edit-anyway");
    options.edl = arguments.read("--edl") || options.edl;
    options.legend = !arguments.read("--no-legend");
    options.panel = !arguments.read("--no-panel");
    Status status = takeOption(arguments, "--mode", colorModeNames() + ", or surface", mode);
    if (status) status = readSurface(arguments, options.surface);
    if (status)
        status =
            takeOption(arguments, "--changed-by", "entry, author, age or built", into(options.changedBy));
    if (status)
        status = takeOption(arguments, "--color", "#rrggbb or R,G,B from 0 to 255", into(options.color));
    if (status) status = takeOption(arguments, "--point-size", "1 to 64 pixels", pointSize);
    if (status) {
        status = takeOption(arguments, "--point-sizing",
                            "fixed, spacing, or spacing,FACTOR with a factor above 0, up to 8",
                            into(options.pointSizing));
    }
    if (status) status = takeOption(arguments, "--memory", "a size from 1M on, such as 4G or 800M", memory);
    if (status) status = takeOption(arguments, "--budget", "a number of points, such as 20M", budget);
    if (status) status = takeOption(arguments, "--normals", "the name of a file", normals);
    if (status) status = takeOption(arguments, "--store", "the name of a file", store);
    if (status) status = takeOption(arguments, "--author", "a name", author);
    if (status) status = takeOption(arguments, "--classes-file", "the name of a file", classesFile);
    const auto light = [&](const std::string& text) { return parseLight(text, options.light); };
    if (status) status = takeOption(arguments, "--light", "eye, off or AZIMUTH,HEIGHT", light);
    if (status) {
        status = takeOption(arguments, "--edl-strength", "a number above 0, up to 10",
                            upTo(options.shading.strength, kStrongestEdl));
    }
    if (status) {
        status = takeOption(arguments, "--edl-radius", "a number of pixels above 0, up to 32",
                            upTo(options.shading.radius, kWidestEdl));
    }
    const auto uiScale = [&](const std::string& text) {
        double& scale = options.uiScale.emplace(0);
        return text == "auto" || (parse(text, scale) && scale > 0 && scale <= kLargestUiScale);
    };
    if (status) status = takeOption(arguments, "--ui-scale", "auto, or a number above 0, up to 8", uiScale);
    if (status) {
        status = takeOption(arguments, "--view",
                            "top, bottom, north, south, east, west, iso, all or EX,EY,EZ,CX,CY,CZ,UX,UY,UZ",
                            into(options.view));
    }
    if (status) status = readHeadless(arguments, options);
    return status;
}

Status readInputs(osg::ArgumentParser& arguments, Options& options)
{
    for (int i = 1; i < arguments.argc(); ++i) {
        if (arguments.isOption(i)) {
            return Status::failure(std::string(arguments[i]) + ": unknown option; see brxview --help");
        }
        options.inputs.push_back(arguments[i]);
    }
    if (options.inputs.empty() && options.headless)
        return Status::failure("no file to show; see brxview --help");
    if (Status status = expandFolders(options.inputs); !status) return status;
    const auto belongsToOne = [&](const std::string& option, const std::string& value) {
        return value.empty() || options.inputs.size() == 1
                   ? Status()
                   : Status::failure(option + " " + value + ": belongs to one file, but " +
                                     std::to_string(options.inputs.size()) + " are given");
    };
    const Status normals = belongsToOne("--normals", options.normals);
    return normals ? belongsToOne("--store", options.store) : normals;
}

void describeOptions(osg::ApplicationUsage& usage)
{
    usage.setApplicationName("brxview");
    usage.setDescription(
        "brxview shows point clouds: octree stores (.brx), all stores of a folder, and LAS files, which it "
        "builds into stores beside them. Without files it opens an empty window. In the window h lists the "
        "keys; Ctrl+Q, or the window's close "
        "button, ends it.");
    usage.setCommandLineUsage("brxview [options] [STORE|FOLDER|LAS|LAZ...]");
    usage.addCommandLineOption("--mode MODE", "Colour the points by " + colorModeNames() +
                                                  ". Default: rgb, elevation in stores without colours. "
                                                  "surface: class, over a shaded surface of the ground.");
    usage.addCommandLineOption("--surface-classes CLASSES",
                               "Classes whose points make the surface, such as 2,9. Default: 2, ground.");
    usage.addCommandLineOption("--contours INTERVAL",
                               "Height between the contour lines of the surface, 0 for none. Default: a "
                               "round number that gives about twenty.");
    usage.addCommandLineOption(
        "--changed-by WHAT", "What the mode changed tells of edited points: entry (which edit, the default), "
                             "author, age, or built (how they differ from when the store was built).");
    usage.addCommandLineOption("--color COLOR",
                               "Colour of the mode single: #rrggbb, or R,G,B from 0 to 255.");
    usage.addCommandLineOption("--point-size N", "Size of a point in pixels, 1 to 64. Default: " +
                                                     std::to_string(VelOsgDBBrx::DefaultDisplay::kPointSize) +
                                                     ".");
    usage.addCommandLineOption(
        "--point-sizing SIZING",
        "fixed: --point-size (the default); spacing: as large as the space between points, so that surfaces "
        "are closed from near, and --point-size at least; spacing,FACTOR: times a factor. Default: 2, which "
        "closes uneven scans.");
    usage.addCommandLineOption("--edl", "Shade the points by eye-dome lighting.");
    usage.addCommandLineOption("--edl-strength N", "How much it darkens, above 0 to 10. Default: 1.5.");
    usage.addCommandLineOption("--edl-radius N",
                               "How far it looks around a pixel, pixels, above 0 to 32. Default: 2.");
    usage.addCommandLineOption(
        "--light LIGHT", "Light on the normals of stores that have some: eye (from where the camera stands), "
                         "off, or AZIMUTH,HEIGHT of the sun in degrees, such as 315,45. Default: eye.");
    usage.addCommandLineOption("--no-legend", "Do not explain the colours in the picture.");
    usage.addCommandLineOption("--no-panel", "Open the window without its panel; Tab shows it.");
    usage.addCommandLineOption(
        "--ui-scale N", "Size of letters and buttons, 1 on a screen of 96 dots an inch, kept for later "
                        "windows; auto: by the density of the screen, as at first.");
    usage.addCommandLineOption("--budget N", "Largest number of points drawn, such as 20M. Default: 100M.");
    usage.addCommandLineOption(
        "--memory SIZE", "Most memory for the points drawn, such as 4G; as much again at most on the "
                         "graphics card. Default: as --budget needs, 44 bytes a point, 60 with normals.");
    usage.addCommandLineOption("--normals FILE",
                               "Normals of the store's points. Default: STORE.normals where there is "
                               "one.");
    usage.addCommandLineOption("--classes-file FILE",
                               "Names and colours of the classes, a JSON file. Default: classes.json beside "
                               "the store, the user's, or the standard's. See docs/classes.md.");
    usage.addCommandLineOption("--store FILE.brx",
                               "Where the store of a LAS or LAZ file is, or is to be built. Default: beside "
                               "it, in the cache where that folder cannot be written.");
    usage.addCommandLineOption(
        "--view VIEW",
        "Where to look from: top, bottom, north (level, looking north), south, east, west, iso, all (iso of "
        "everything: the others leave single points far off out), or "
        "the coordinates of eye, centre and up, separated by commas. "
        "Default: iso.");
    usage.addCommandLineOption("--render OUT.png",
                               "Draw a picture and end; needs no display. Prints the points "
                               "and cells drawn.");
    usage.addCommandLineOption(
        "--script FILE", "Run the operations of a JSON file, or of standard input for -, and end; needs "
                         "no display. See docs/scripting.md.");
    usage.addCommandLineOption("--size WxH",
                               "Size of the picture, or of a script's pictures. Default: 1280x720.");
    usage.addCommandLineOption("--timeout SECONDS",
                               "Give up when a picture is not complete by then. Default: "
                               "300.");
    usage.addCommandLineOption("--author NAME",
                               "Who edits, for the journals of the stores. Default: the login name.");
    usage.addCommandLineOption("--edit-anyway", "Edit stores that another program is editing, too.");
    usage.addCommandLineOption("--force", "Replace pictures, or a store that is older than its LAS file.");
    usage.addCommandLineOption("--window X Y W H", "Place and size of the window, pixels.");
    usage.addCommandLineOption("--screen N", "Show on this screen, whole.");
    usage.addCommandLineOption("--SingleThreaded, --CullDrawThreadPerContext, --DrawThreadPerContext",
                               "Threading model.");
    usage.addCommandLineOption("--help", "Print this text.");
    usage.addCommandLineOption("--version", "Print the version.");
}
