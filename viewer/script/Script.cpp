#include "viewer/script/Script.h"

#include "viewer/picture/PictureView.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <utility>

using nlohmann::json;
using VelBrx::Status;

namespace script {

namespace {

constexpr int kClasses = 256;
constexpr double kWidestLine = 1000.0; // pixels
constexpr double kLargest = 1e12;      // of a coordinate
constexpr char kLargestText[] = "1e12";

/// In the quotes and escapes of JSON, so that any text stays on one line.
std::string quoted(const std::string& text)
{
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string shortest(double number)
{
    return json(number).dump();
}

/// The members of one operation. The first thing that is wrong is kept; what is read after it does not
/// matter.
class Members
{
public:
    enum Need
    {
        REQUIRED,
        OPTIONAL ///< the target keeps its value without the member
    };

    explicit Members(const json& operation) : _operation(operation) { _known.insert("op"); }

    bool has(const char* name) const { return _operation.contains(name); }

    void read(const char* name, bool& target, Need need)
    {
        const json* value = find(name, need);
        if (!value) return;
        if (!value->is_boolean()) return expected(name, "true or false");
        target = value->get<bool>();
    }

    void read(const char* name, int& target, int low, int high, Need need)
    {
        if (const json* value = find(name, need)) take(name, *value, target, low, high);
    }

    /// A number above `low`, up to `high`.
    void read(const char* name, double& target, double low, double high)
    {
        const json* value = find(name, OPTIONAL);
        if (!value) return;
        const double number = value->is_number() ? value->get<double>() : low;
        if (!(number > low && number <= high)) {
            return expected(name, "a number above " + shortest(low) + ", up to " + shortest(high));
        }
        target = number;
    }

    void read(const char* name, std::optional<double>& target, double low, double high)
    {
        if (has(name)) read(name, target.emplace(), low, high);
    }

    void read(const char* name, std::string& target)
    {
        const json* value = find(name, REQUIRED);
        if (!value) return;
        if (!value->is_string() || value->get_ref<const std::string&>().empty())
            return expected(name, "a text");
        target = value->get<std::string>();
    }

    /// One of a few texts, each with its value.
    template <class T>
    void read(const char* name, T& target, const std::vector<std::pair<std::string, T>>& choices, Need need)
    {
        const json* value = find(name, need);
        if (!value) return;
        std::string names;
        for (const auto& [choice, meaning] : choices) {
            if (*value == choice) {
                target = meaning;
                return;
            }
            names += (names.empty() ? "" : ", ") + quoted(choice);
        }
        expected(name, "one of " + names);
    }

    /// An array of numbers as long as `Vec`.
    template <class Vec>
    void read(const char* name, Vec& target)
    {
        const json* value = find(name, REQUIRED);
        if (value && !take(*value, target)) expected(name, vectorText<Vec>());
    }

    /// At least `least` of them.
    template <class Vec>
    void read(const char* name, std::vector<Vec>& target, size_t least)
    {
        const json* value = find(name, REQUIRED);
        if (!value) return;
        if (!value->is_array() || value->size() < least)
            return expected(name, "a list of at least " + std::to_string(least) + " items");
        target.resize(value->size());
        for (size_t i = 0; i < target.size(); ++i) {
            if (take((*value)[i], target[i])) continue;
            return expected(name, vectorText<Vec>() + " as item " + std::to_string(i + 1));
        }
    }

    /// A list of class codes, at least one.
    void read(const char* name, std::vector<int>& target, int high)
    {
        const json* value = find(name, OPTIONAL);
        if (!value) return;
        if (!value->is_array() || value->empty()) return expected(name, "a list of classes");
        target.resize(value->size());
        for (size_t i = 0; i < target.size(); ++i)
            take(name, (*value)[i], target[i], 0, high);
    }

    void fail(const std::string& wrong)
    {
        if (_wrong.empty()) _wrong = wrong;
    }

    Status finish()
    {
        for (const auto& [name, value] : _operation.items()) {
            if (_known.count(name) == 0) fail(quoted(name) + " is no member of it; see docs/scripting.md");
        }
        return _wrong.empty() ? Status() : Status::failure(_wrong);
    }

private:
    const json* find(const char* name, Need need)
    {
        _known.insert(name);
        const auto member = _operation.find(name);
        if (member != _operation.end()) return &*member;
        if (need == REQUIRED) fail(quoted(name) + " is missing");
        return nullptr;
    }

    void expected(const char* name, const std::string& what) { fail(quoted(name) + ": expected " + what); }

    void take(const char* name, const json& value, int& target, int low, int high)
    {
        const bool whole = value.is_number_integer();
        // An unsigned number beyond the signed ones compares right as a double.
        const double number = whole ? value.get<double>() : 0;
        if (!whole || number < low || number > high) {
            return expected(name,
                            "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
        }
        target = value.get<int>();
    }

    template <class Vec>
    static bool take(const json& value, Vec& target)
    {
        if (!value.is_array() || value.size() != Vec::num_components) return false;
        for (int i = 0; i < Vec::num_components; ++i) {
            if (!value[i].is_number() || std::abs(value[i].get<double>()) > kLargest) return false;
            target[i] = value[i].get<double>();
        }
        return true;
    }

    template <class Vec>
    static std::string vectorText()
    {
        return std::to_string(Vec::num_components) + " numbers, none beyond " + kLargestText;
    }

    const json& _operation;
    std::set<std::string> _known;
    std::string _wrong;
};

/// Vertices in pixels, or in world coordinates under the name that begins with "world".
void readOutline(Members& members, const char* name, const char* worldName, size_t least, Outline& outline)
{
    if (!members.has(worldName)) return members.read(name, outline.pixels, least);
    members.read(worldName, outline.world, least);
    if (members.has(name)) members.fail(quoted(name) + " and " + quoted(worldName) + " exclude each other");
}

Outline readPolygon(Members& members)
{
    Outline polygon;
    readOutline(members, "polygon", "worldPolygon", 3, polygon);
    return polygon;
}

bool readSide(Members& members)
{
    bool inside = true;
    members.read<bool>("side", inside, {{"inside", true}, {"outside", false}}, Members::OPTIONAL);
    return inside;
}

Operation readWindow(Members& members)
{
    Window window;
    members.read("width", window.size.width, 1, kLargestPicture, Members::REQUIRED);
    members.read("height", window.size.height, 1, kLargestPicture, Members::REQUIRED);
    return window;
}

Operation readCamera(Members& members)
{
    Camera camera;
    CameraView& view = camera.view;
    if (members.has("view")) {
        members.read<CameraView::Kind>("view", view.kind,
                                       {{"top", CameraView::TOP},
                                        {"north", CameraView::NORTH},
                                        {"iso", CameraView::ISO},
                                        {"all", CameraView::ALL}},
                                       Members::REQUIRED);
    } else {
        view.kind = CameraView::LOOK;
        members.read("eye", view.look.eye);
        members.read("center", view.look.center);
        members.read("up", view.look.up);
        if (((view.look.center - view.look.eye) ^ view.look.up).length2() == 0)
            members.fail("\"up\": expected a direction other than that from eye to center");
    }
    members.read<bool>("projection", camera.orthographic, {{"perspective", false}, {"orthographic", true}},
                       Members::OPTIONAL);
    if (camera.orthographic) members.read("height", camera.height, 0, 1e9);
    return camera;
}

Operation readMode(Members& members)
{
    std::vector<std::pair<std::string, ColorMode>> modes;
    for (const ColorModeChoice& choice : colorModeChoices())
        modes.emplace_back(choice.name, choice.mode);
    Mode mode;
    members.read("mode", mode.mode, modes, Members::REQUIRED);
    return mode;
}

Operation readEyeDomeLighting(Members& members)
{
    EyeDomeLighting lighting;
    members.read("on", lighting.on, Members::REQUIRED);
    members.read("strength", lighting.strength, 0, kStrongestEdl);
    members.read("radius", lighting.radius, 0, kWidestEdl);
    return lighting;
}

Operation readLight(Members& members)
{
    Light light;
    members.read<NormalLight::Source>(
        "from", light.light.source,
        {{"eye", NormalLight::EYE}, {"sun", NormalLight::SUN}, {"none", NormalLight::NONE}},
        Members::REQUIRED);
    if (light.light.source == NormalLight::SUN) {
        members.read("azimuth", light.light.azimuth, -360, 360);
        members.read("height", light.light.height, 0, 90);
    }
    return light;
}

Operation readPointSize(Members& members)
{
    PointSize size;
    members.read("pixels", size.pixels, 1, kLargestPointSize, Members::REQUIRED);
    return size;
}

Operation readShowClasses(Members& members)
{
    std::vector<int> classes;
    members.read("classes", classes, kClasses - 1);
    ShowClasses show;
    for (const int code : classes)
        show.classes.set(static_cast<size_t>(code));
    if (!members.has("classes")) show.classes.set();
    return show;
}

Operation readClip(Members& members)
{
    Clip clip;
    if (members.has("planes")) members.read("planes", clip.planes, 1);
    for (const osg::Vec4d& plane : clip.planes) {
        if (osg::Vec3d(plane.x(), plane.y(), plane.z()).length2() == 0)
            members.fail("\"planes\": a plane needs a normal: a, b and c are all 0");
    }
    return clip;
}

Operation readCull(Members& members)
{
    return Cull{readPolygon(members), readSide(members)};
}

Operation readUncull(Members& members)
{
    return Uncull{readPolygon(members)};
}

Operation readSelect(Members& members)
{
    return Select{readPolygon(members)};
}

Operation readDeselect(Members& members)
{
    return Deselect{readPolygon(members)};
}

Operation readSegment(Members& members)
{
    Segment segment;
    members.read<bool>("hide", segment.hideSelected, {{"selected", true}, {"others", false}},
                       Members::REQUIRED);
    return segment;
}

Operation readLine(Members& members)
{
    Line line;
    readOutline(members, "line", "worldLine", 2, line.line);
    members.read("width", line.width, 0, kWidestLine);
    return line;
}

Operation readClassify(Members& members)
{
    Classify classify;
    classify.polygon = readPolygon(members);
    // Class 255 has no place in the table of classes that an edit may change.
    members.read("from", classify.from, kClasses - 2);
    members.read("to", classify.to, 0, kClasses - 1, Members::REQUIRED);
    members.read("dryRun", classify.dryRun, Members::OPTIONAL);
    return classify;
}

Operation readRender(Members& members)
{
    Render render;
    members.read("file", render.file);
    return render;
}

template <class T>
Operation readNothing(Members&)
{
    return T();
}

struct Kind
{
    const char* name;
    Operation (*read)(Members&);
};

constexpr Kind kKinds[] = {{"window", readWindow},
                           {"camera", readCamera},
                           {"mode", readMode},
                           {"edl", readEyeDomeLighting},
                           {"light", readLight},
                           {"pointSize", readPointSize},
                           {"showClasses", readShowClasses},
                           {"clip", readClip},
                           {"cull", readCull},
                           {"uncull", readUncull},
                           {"select", readSelect},
                           {"deselect", readDeselect},
                           {"segment", readSegment},
                           {"line", readLine},
                           {"classify", readClassify},
                           {"undo", readNothing<Undo>},
                           {"undoAll", readNothing<UndoAll>},
                           {"reset", readNothing<Reset>},
                           {"save", readNothing<Save>},
                           {"settle", readNothing<Settle>},
                           {"render", readRender},
                           {"report", readNothing<Report>}};

Status readStep(const json& object, Step& step)
{
    if (!object.is_object()) return Status::failure("expected an object with a member \"op\"");
    const auto op = object.find("op");
    if (op == object.end()) return Status::failure("\"op\" is missing");
    for (const Kind& kind : kKinds) {
        if (*op != kind.name) continue;
        step.name = kind.name;
        Members members(object);
        step.operation = kind.read(members);
        return members.finish();
    }
    std::string names;
    for (const std::string& name : operationNames())
        names += (names.empty() ? "" : ", ") + name;
    return Status::failure("\"op\": " + op->dump(-1, ' ', false, json::error_handler_t::replace) +
                           " is no operation; there are " + names);
}

/// The text of a JSON document as a value; members named twice are refused.
Status parse(const std::string& text, json& document)
{
    std::vector<std::set<std::string>> names; // of the objects that are open
    std::string repeated;
    const auto watch = [&](int, json::parse_event_t event, json& value) {
        if (event == json::parse_event_t::object_start) names.emplace_back();
        if (event == json::parse_event_t::object_end) names.pop_back();
        if (event == json::parse_event_t::key && !names.back().insert(value.get<std::string>()).second)
            repeated = value.dump();
        return true;
    };
    try {
        document = json::parse(text, watch);
    } catch (const json::exception& error) {
        const std::string what = error.what(); // "[json.exception...] parse error at line 1, ..."
        const size_t end = what.find("] ");
        return Status::failure("is no JSON: " + (end == std::string::npos ? what : what.substr(end + 2)));
    }
    return repeated.empty() ? Status() : Status::failure(repeated + " stands twice in one object");
}

Status readText(const std::string& file, std::string& text)
{
    std::ifstream stream;
    if (file != "-") stream.open(file, std::ios::binary);
    std::istream& source = file == "-" ? std::cin : stream;
    char block[1 << 16];
    while (source.read(block, sizeof block) || source.gcount() > 0)
        text.append(block, static_cast<size_t>(source.gcount()));
    if (!source.eof() || source.bad()) return Status::failure("cannot be read");
    return Status();
}

/// What no operation can check alone: the window comes first and its size is not said twice, and no picture
/// is in the way of another file.
class OrderChecks
{
public:
    OrderChecks(HeadlessRequest& request, bool force) : _request(request), _force(force) {}

    Status check(const Step& step, size_t index)
    {
        if (const auto* window = std::get_if<Window>(&step.operation)) return take(*window, index);
        if (const auto* render = std::get_if<Render>(&step.operation)) return take(*render);
        return Status();
    }

private:
    Status take(const Window& window, size_t index)
    {
        if (index > 0) return Status::failure("the window's size can only be set by the first operation");
        if (_request.sized) return Status::failure("the window's size is given by --size already");
        _request.size = window.size;
        return Status();
    }

    Status take(const Render& render)
    {
        std::error_code error;
        const std::filesystem::path path = std::filesystem::absolute(render.file, error).lexically_normal();
        if (!std::filesystem::is_directory(path.parent_path(), error))
            return Status::failure(render.file + ": its folder does not exist");
        if (!_pictures.insert(path.string()).second)
            return Status::failure(render.file + ": is drawn by an operation before");
        return checkPicturePath(render.file, _force);
    }

    HeadlessRequest& _request;
    const bool _force;
    std::set<std::string> _pictures;
};

Status readSteps(const std::string& text, Options& options, Script& script)
{
    json document;
    if (Status status = parse(text, document); !status) return status;
    if (!document.is_array()) return Status::failure("expected a list of operations");
    OrderChecks checks(*options.headless, options.force);
    script.steps.resize(document.size());
    for (size_t i = 0; i < document.size(); ++i) {
        Status status = readStep(document[i], script.steps[i]);
        if (status) status = checks.check(script.steps[i], i);
        if (!status) return Status::failure(nameOfStep(script, i) + ": " + status.message());
    }
    return Status();
}

} // namespace

std::vector<std::string> operationNames()
{
    std::vector<std::string> names;
    for (const Kind& kind : kKinds)
        names.emplace_back(kind.name);
    return names;
}

std::string nameOfStep(const Script& script, size_t index)
{
    const std::string& name = script.steps[index].name;
    return "operation " + std::to_string(index + 1) + (name.empty() ? "" : " (" + name + ")");
}

Status read(Options& options, Script& script)
{
    const std::string& file = options.headless->script;
    script.name = file == "-" ? "standard input" : file;
    std::string text;
    Status status = readText(file, text);
    if (status) status = readSteps(text, options, script);
    return status ? status : Status::failure(script.name + ": " + status.message());
}

} // namespace script
