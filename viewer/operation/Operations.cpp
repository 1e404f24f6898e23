#include "viewer/operation/Operations.h"

#include <algorithm>
#include <utility>

using VelBrx::Status;
using VelOsgDBBrx::PointSelection;

namespace {

// What parameters take.

constexpr double kLargest = 1e12; // of a coordinate
constexpr int kClasses = 256;

Parameter flag(const char* name)
{
    return {name, Parameter::FLAG};
}

Parameter whole(const char* name, const char* unit, int low, int high)
{
    return {name, Parameter::WHOLE, double(low), double(high), unit};
}

/// Above `low`, up to `high`.
Parameter number(const char* name, const char* unit, double low, double high)
{
    return {name, Parameter::NUMBER, low, high, unit};
}

Parameter text(const char* name)
{
    return {name, Parameter::TEXT};
}

Parameter choice(const char* name, std::vector<std::string> choices)
{
    return {name, Parameter::CHOICE, 0, 0, "", std::move(choices)};
}

Parameter position(const char* name)
{
    return {name, Parameter::POSITION, 0, kLargest, "world coordinates"};
}

/// Up to the code `high`.
Parameter classes(const char* name, int high)
{
    return {name, Parameter::CLASSES, 0, double(high)};
}

Parameter polygon()
{
    return {"polygon", Parameter::POLYGON, 3, kLargest};
}

/// Points that are given without a polygon.
Parameter points()
{
    Parameter parameter{"points", Parameter::POINTS};
    parameter.required = false;
    parameter.without = "`polygon` or `selected`";
    return parameter;
}

Parameter orElse(Parameter parameter, Value otherwise)
{
    parameter.required = false;
    parameter.otherwise = std::move(otherwise);
    return parameter;
}

/// With no value of its own where it is not given: `without` says what that means.
Parameter orNone(Parameter parameter, const char* without)
{
    parameter.required = false;
    parameter.without = without;
    return parameter;
}

/// Only beside a parameter of this value; `value` is empty where that one must not be given.
Parameter where(Parameter parameter, const char* other, std::optional<std::string> value)
{
    parameter.condition = Parameter::Condition{other, std::move(value)};
    return parameter;
}

/// What a key says: one parameter and its value.
std::function<void(Request&, const Scene&)> says(const char* name, const Value& value)
{
    return [=](Request& request, const Scene&) { request.set(name, value); };
}

// What operations do, one function for each.

Begun started(bool isStarted)
{
    return {isStarted ? Begun::RUNNING : Begun::BUSY, ""};
}

Begun lookFrom(const Request& request, const Stage& stage)
{
    CameraView view;
    if (request.has("view")) {
        view = *namedView(request.get<std::string>("view"));
    } else {
        view.kind = CameraView::LOOK;
        view.look = {request.get<osg::Vec3d>("eye"), request.get<osg::Vec3d>("center"),
                     request.get<osg::Vec3d>("up")};
    }
    Lens lens;
    lens.orthographic = request.get<std::string>("projection") == "orthographic";
    if (request.has("height")) lens.height = request.get<double>("height");
    stage.look(view, lens);
    return {};
}

Status checkCamera(const Request& request)
{
    if (request.has("view")) return Status();
    const auto& eye = request.get<osg::Vec3d>("eye");
    const osg::Vec3d ahead = request.get<osg::Vec3d>("center") - eye;
    if ((ahead ^ request.get<osg::Vec3d>("up")).length2() > 0) return Status();
    return Status::failure("\"up\": expected a direction other than that from eye to center");
}

Begun colour(const Request& request, const Stage& stage)
{
    const ColorMode mode = *namedColorMode(request.get<std::string>("mode"));
    ChangedBy by = ChangedBy::ENTRY;
    if (mode == ColorMode::CHANGED) by = *namedChangedBy(request.get<std::string>("by"));
    stage.scene.setColorMode(mode, by);
    return {Begun::DONE, stage.scene.remark()};
}

Begun lightEyeDome(const Request& request, const Stage& stage)
{
    stage.scene.setEyeDomeLighting(request.get<bool>("on"));
    EyeDomeShading shading = stage.scene.shading();
    if (request.has("strength")) shading.strength = request.get<double>("strength");
    if (request.has("radius")) shading.radius = request.get<double>("radius");
    stage.scene.setShading(shading);
    return {};
}

void eyeDomeOtherwise(Request& request, const Scene& scene)
{
    request.set("on", !scene.eyeDomeLighting());
}

template <bool more>
void eyeDomeStrength(Request& request, const Scene& scene)
{
    constexpr double kStep = 1.25;
    const double strength = scene.shading().strength;
    request.set("on", scene.eyeDomeLighting());
    request.set("strength", std::min(more ? strength * kStep : strength / kStep, kStrongestEdl));
}

/// In the order in which the key goes through them.
constexpr std::pair<const char*, NormalLight::Source> kLights[] = {
    {"eye", NormalLight::EYE}, {"sun", NormalLight::SUN}, {"none", NormalLight::NONE}};

Begun light(const Request& request, const Stage& stage)
{
    const auto& from = request.get<std::string>("from");
    NormalLight light = stage.scene.light();
    for (const auto& [name, source] : kLights)
        if (from == name) light.source = source;
    if (light.source == NormalLight::SUN) {
        light.azimuth = request.get<double>("azimuth");
        light.height = request.get<double>("height");
    }
    stage.scene.setLight(light);
    return {};
}

void nextLight(Request& request, const Scene& scene)
{
    const NormalLight& now = scene.light();
    size_t place = 0;
    while (kLights[place].second != now.source)
        ++place;
    const auto& [name, source] = kLights[(place + 1) % std::size(kLights)];
    request.set("from", std::string(name));
    if (source != NormalLight::SUN) return;
    request.set("azimuth", now.azimuth);
    request.set("height", now.height);
}

Begun sizePoints(const Request& request, const Stage& stage)
{
    stage.scene.setPointSize(request.get<int>("pixels"));
    return {};
}

template <int step>
void otherPointSize(Request& request, const Scene& scene)
{
    request.set("pixels", std::clamp(scene.pointSize() + step, 1, kLargestPointSize));
}

Begun showClasses(const Request& request, const Stage& stage)
{
    stage.scene.setShownClasses(request.has("classes") ? request.get<ClassSet>("classes") : ClassSet().set());
    return {};
}

Begun clip(const Request& request, const Stage& stage)
{
    stage.scene.setClipPlanes(request.has("planes") ? request.get<std::vector<osg::Vec4d>>("planes")
                                                    : std::vector<osg::Vec4d>());
    return {};
}

Status checkPlanes(const Request& request)
{
    if (!request.has("planes")) return Status();
    for (const osg::Vec4d& plane : request.get<std::vector<osg::Vec4d>>("planes")) {
        if (osg::Vec3d(plane.x(), plane.y(), plane.z()).length2() == 0)
            return Status::failure("\"planes\": a plane needs a normal: a, b and c are all 0");
    }
    return Status();
}

/// Where the points are that an operation is about.
EditPlace placeOf(const Request& request)
{
    if (request.has("points")) return request.get<PointSelection>("points");
    if (request.get<bool>("selected")) return SelectedPoints();
    return request.get<Outline>("polygon");
}

Status checkPlace(const Request& request)
{
    const bool isSelected = request.get<bool>("selected");
    if (request.has("polygon") + request.has("points") + isSelected != 1)
        return Status::failure("expected one of \"polygon\", \"worldPolygon\", \"points\" and \"selected\"");
    if (request.has("side") && request.get<std::string>("side") == "outside" && !request.has("polygon"))
        return Status::failure(
            "\"side\": only of a polygon; a selection says \"outside\" itself, see docs/selections.md");
    return Status();
}

Begun hide(const Request& request, const Stage& stage)
{
    return started(stage.editing.hide(placeOf(request), request.get<std::string>("side") == "outside"));
}

Begun show(const Request& request, const Stage& stage)
{
    return started(stage.editing.show(placeOf(request)));
}

template <bool add>
Begun select(const Request& request, const Stage& stage)
{
    return started(stage.editing.select(request.get<Outline>("polygon"), add));
}

Begun segment(const Request& request, const Stage& stage)
{
    return started(stage.editing.segment(request.get<std::string>("hide") == "others"));
}

Begun followLine(const Request& request, const Stage& stage)
{
    return started(stage.editing.line(request.get<Outline>("line"), request.get<double>("width")));
}

Begun classify(const Request& request, const Stage& stage)
{
    VelOsgDBBrx::Classification change;
    change.toClass = request.get<int>("to");
    if (request.has("from")) change.fromClasses = listClasses(request.get<ClassSet>("from"));
    change.dryRun = request.get<bool>("dryRun");
    return started(stage.editing.classify(placeOf(request), change));
}

Begun reach(const Request& request, const Stage& stage)
{
    stage.scene.setEditsUndrawn(request.get<std::string>("of") == "everything");
    return {};
}

void otherReach(Request& request, const Scene& scene)
{
    request.set("of", std::string(scene.editsUndrawn() ? "drawn" : "everything"));
}

Begun stepTo(const Request& request, const Stage& stage)
{
    return started(stage.editing.stepTo(static_cast<size_t>(request.get<int>("step"))));
}

template <bool (SceneEditing::*operation)()>
Begun call(const Request&, const Stage& stage)
{
    return started((stage.editing.*operation)());
}

std::vector<std::string> namesOfModes()
{
    std::vector<std::string> names;
    for (const ColorModeChoice& mode : colorModeChoices())
        names.push_back(mode.name);
    return names;
}

/// The mode of edits, the last of the table; where it is on, by the next of what it can tell.
void nextChanged(Request& request, const Scene& scene)
{
    const auto& names = changedByNames();
    const size_t next =
        scene.colorMode() == ColorMode::CHANGED ? static_cast<size_t>(scene.changedBy()) + 1 : 0;
    request.set("mode", std::string(colorModeChoices().back().name));
    request.set("by", names[next % names.size()]);
}

std::vector<Key> keysOfModes()
{
    std::vector<Key> keys;
    for (const ColorModeChoice& mode : colorModeChoices())
        keys.push_back({mode.key, mode.description, Key::ALWAYS, says("mode", std::string(mode.name))});
    keys.back().say = nextChanged;
    return keys;
}

std::vector<Operation> looking()
{
    const NormalLight sun;
    return {
        {"window",
         "sets the size of the window and of the pictures",
         {whole("width", "pixels", 1, kLargestPicture), whole("height", "pixels", 1, kLargestPicture)}},
        {"camera",
         "looks from another place",
         {orNone(choice("view", namesOfViews()), "`eye`, `center` and `up`"),
          where(position("eye"), "view", std::nullopt), where(position("center"), "view", std::nullopt),
          where(position("up"), "view", std::nullopt),
          orElse(choice("projection", {"perspective", "orthographic"}), std::string("perspective")),
          where(orNone(number("height", "world units", 0, 1e9), "all is in the picture"), "projection",
                "orthographic")},
         {{'T', "look down / north / obliquely", Key::ALWAYS, says("view", std::string("top"))},
          {'N', nullptr, Key::ALWAYS, says("view", std::string("north"))},
          {'I', nullptr, Key::ALWAYS, says("view", std::string("iso"))},
          {'O', "look at everything, stray points too", Key::ALWAYS, says("view", std::string("all"))}},
         lookFrom,
         checkCamera},
        {"mode",
         "colours the points",
         {choice("mode", namesOfModes()),
          where(orElse(choice("by", changedByNames()), changedByNames().front()), "mode", "changed")},
         keysOfModes(),
         colour},
        {"edl",
         "switches eye-dome lighting",
         {flag("on"), orNone(number("strength", "", 0, kStrongestEdl), "stays"),
          orNone(number("radius", "pixels", 0, kWidestEdl), "stays")},
         {{'d', "eye-dome lighting on / off", Key::ALWAYS, eyeDomeOtherwise},
          {'[', "weaker / stronger eye-dome lighting", Key::ALWAYS, eyeDomeStrength<false>},
          {']', nullptr, Key::ALWAYS, eyeDomeStrength<true>}},
         lightEyeDome},
        {"light",
         "lights stores that have normals",
         {choice("from", {"eye", "sun", "none"}),
          where(orElse(number("azimuth", "degrees clockwise from north", -360, 360), sun.azimuth), "from",
                "sun"),
          where(orElse(number("height", "degrees above the horizon", 0, 90), sun.height), "from", "sun")},
         {{'B', "light on normals: eye / sun / off", Key::ALWAYS, nextLight}},
         light},
        {"pointSize",
         "sets the size of points",
         {whole("pixels", "pixels", 1, kLargestPointSize)},
         {{'+', "larger / smaller points", Key::ALWAYS, otherPointSize<1>},
          {'-', nullptr, Key::ALWAYS, otherPointSize<-1>}},
         sizePoints},
        {"showClasses",
         "shows points of some classes only",
         {orNone(classes("classes", kClasses - 1), "all classes")},
         {{'V', "visible classes: which classes are shown", Key::EDITING, nullptr, "classes to show", false,
           "classes"}},
         showClasses},
        {"clip",
         "shows and edits only what is inside planes",
         {orNone({"planes", Parameter::PLANES, 0, kLargest}, "no plane")},
         {},
         clip,
         checkPlanes},
    };
}

std::vector<Operation> editing()
{
    return {
        {"cull",
         "hides points",
         {orNone(polygon(), "`points` or `selected`"), points(), orElse(flag("selected"), false),
          orElse(choice("side", {"inside", "outside"}), std::string("inside"))},
         {{'x', "hide the points inside", Key::EDITING, says("side", std::string("inside")), "hides inside"},
          {'X', "hide the points outside", Key::EDITING, says("side", std::string("outside")), "outside"}},
         hide,
         checkPlace},
        {"uncull",
         "brings hidden points back",
         {orNone(polygon(), "`points` or `selected`"), points(), orElse(flag("selected"), false)},
         {{'v', "bring hidden points back", Key::EDITING, nullptr, "brings back"}},
         show,
         checkPlace},
        {"reach",
         "edits only what is drawn, or the points that are not drawn as well",
         {choice("of", {"drawn", "everything"})},
         {{'M', "reach more: edit points that are not drawn too, on / off", Key::EDITING, otherReach}},
         reach},
        {"select",
         "adds points to the selection",
         {polygon()},
         {{'q', "select the points inside", Key::EDITING, nullptr, "selects"}},
         select<true>},
        {"deselect",
         "takes points out of the selection",
         {polygon()},
         {{'Q', "deselect the points inside", Key::EDITING, nullptr, "deselects"}},
         select<false>},
        {"segment",
         "shows nothing but the selection, or all but it",
         {choice("hide", {"selected", "others"})},
         {{'G', "show the selected points only", Key::EDITING, says("hide", std::string("others"))},
          {'H', "show all but the selected points", Key::EDITING, says("hide", std::string("selected"))}},
         segment},
        {"line",
         "finds the points along a line and makes them stand out",
         {{"line", Parameter::LINE, 2, kLargest}, orElse(number("width", "pixels", 0, kWidestLine), 5.0)},
         {{'j', "follow the line through the corners", Key::EDITING, nullptr, "follows the line"}},
         followLine},
        {"classify",
         "gives points another class",
         {orNone(polygon(), "`points` or `selected`"), points(), orElse(flag("selected"), false),
          orNone(classes("from", kClasses - 1), "all classes"), whole("to", "", 0, kClasses - 1),
          orElse(flag("dryRun"), false)},
         {{'K', "give the points inside the to-class", Key::EDITING, nullptr, "reclassifies"},
          {'D', "dry run: count what K would change", Key::EDITING, says("dryRun", true), "counts", true}},
         classify,
         checkPlace},
        {"undo",
         "takes the newest edit back",
         {},
         {{'z', "undo the newest edit", Key::EDITING}},
         call<&SceneEditing::undo>},
        {"redo",
         "does again what was undone last",
         {},
         {{'y', "redo what was undone last", Key::EDITING}},
         call<&SceneEditing::redo>},
        {"stepTo",
         "goes to how all was behind a step of the history",
         {whole("step", "", 0, 1000000000)},
         {},
         stepTo},
        {"undoAll",
         "takes all edits of this run back",
         {},
         {{'Z', "undo all edits of this run", Key::EDITING}},
         call<&SceneEditing::undoAll>},
        {"reset",
         "shows every hidden point",
         {},
         {{'R', "reset: show every hidden point, after asking", Key::EDITING}},
         call<&SceneEditing::reset>,
         nullptr,
         "Show every hidden point of the stores, whoever hid it?",
         "show them all"},
        {"save",
         "writes changed classes into the stores",
         {},
         {{'W', "save the classes", Key::EDITING}},
         call<&SceneEditing::save>},
        {"dropUnsaved",
         "gives points the classes that the stores have",
         {},
         {{'w', "drop the classes that are not saved", Key::EDITING}},
         call<&SceneEditing::dropUnsaved>},
    };
}

/// What only scripts do.
std::vector<Operation> telling()
{
    return {{"settle", "waits for all points of the picture", {}},
            {"render", "draws a picture", {text("file")}},
            {"report", "counts points", {}}};
}

} // namespace

const std::vector<Operation>& operations()
{
    static const std::vector<Operation> all = [] {
        std::vector<Operation> table = looking();
        for (const std::vector<Operation>& more : {editing(), telling()})
            table.insert(table.end(), more.begin(), more.end());
        return table;
    }();
    return all;
}

const Operation* findOperation(const std::string& name)
{
    for (const Operation& operation : operations())
        if (operation.name == name) return &operation;
    return nullptr;
}

std::optional<PressedKey> findKey(int key, Key::When when)
{
    for (const Operation& operation : operations())
        for (const Key& known : operation.keys)
            if (known.key == key && known.when == when) return PressedKey{&operation, &known};
    return std::nullopt;
}

Request requestOf(const PressedKey& pressed, const Scene& scene)
{
    Request request(*pressed.operation);
    if (pressed.key->say) pressed.key->say(request, scene);
    return request;
}

std::string keyOf(const std::string& operation)
{
    return findOperation(operation)->keys.front().name();
}

std::vector<std::pair<std::string, std::string>> listKeys(Key::When when)
{
    std::vector<std::pair<std::string, std::string>> lines;
    for (const Operation& operation : operations())
        for (const Key& key : operation.keys) {
            if (key.when != when) continue;
            if (key.words)
                lines.emplace_back(key.name(), key.words);
            else
                lines.back().first += " / " + key.name();
        }
    return lines;
}
