#include "viewer/operation/EditOperations.h"

#include "viewer/operation/Operations.h"
#include "viewer/operation/ParameterKinds.h"

#include <algorithm>

using namespace parameter;
using VelBrx::Status;
using VelOsgDBBrx::AttributeRanges;
using VelOsgDBBrx::PointSelection;
using VelOsgDBBrx::ValueRange;

namespace {

Begun started(bool isStarted)
{
    return {isStarted ? Begun::RUNNING : Begun::BUSY, ""};
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

Begun depth(const Request& request, const Stage& stage)
{
    EditLimits limits = stage.scene.editLimits();
    limits.front.reset();
    if (request.get<std::string>("of") == "front") {
        limits.front.emplace();
        if (request.has("tolerance")) limits.front->tolerance = request.get<double>("tolerance");
        if (request.has("radius")) limits.front->radius = request.get<double>("radius");
    }
    stage.scene.setEditLimits(limits);
    return {};
}

void otherDepth(Request& request, const Scene& scene)
{
    request.set("of", std::string(scene.editLimits().front ? "all" : "front"));
}

/// The ranges of the operation that limits edits to attributes.
constexpr std::pair<const char*, ValueRange AttributeRanges::*> kRanges[] = {
    {"returns", &AttributeRanges::returnNumber}, {"numberOfReturns", &AttributeRanges::numberOfReturns},
    {"intensity", &AttributeRanges::intensity},  {"height", &AttributeRanges::height},
    {"source", &AttributeRanges::source},        {"gpsTime", &AttributeRanges::gpsTime},
    {"scanAngle", &AttributeRanges::scanAngle}};

Begun limitAttributes(const Request& request, const Stage& stage)
{
    EditLimits limits = stage.scene.editLimits();
    limits.attributes = AttributeRanges();
    if (request.has("classes")) limits.attributes.classes = request.get<ClassSet>("classes");
    for (const auto& [name, range] : kRanges)
        if (request.has(name)) limits.attributes.*range = request.get<ValueRange>(name);
    stage.scene.setEditLimits(limits);
    return {};
}

template <bool (SceneEditing::*operation)()>
Begun moveInHistory(const Request&, const Stage& stage)
{
    const std::string problem = whyNoHistory(stage.scene.waiting());
    if (!problem.empty()) return {Begun::REFUSED, problem};
    return started((stage.editing.*operation)());
}

Begun stepTo(const Request& request, const Stage& stage)
{
    const std::string problem = whyNoHistory(stage.scene.waiting());
    if (!problem.empty()) return {Begun::REFUSED, problem};
    return started(stage.editing.stepTo(static_cast<size_t>(request.get<int>("step"))));
}

template <bool (SceneEditing::*operation)()>
Begun call(const Request&, const Stage& stage)
{
    return started((stage.editing.*operation)());
}

} // namespace

std::vector<Operation> editOperations()
{
    return {
        {"classify",
         "gives points another class",
         {orNone(polygon(), "`points` or `selected`"), points(), orElse(flag("selected"), false),
          orNone(classes("from", kClasses - 1), "all classes"), whole("to", "", 0, kClasses - 1),
          orElse(flag("dryRun"), false)},
         {{'K', "give the points inside the to-class", Key::EDITING, nullptr, "classifies"},
          {'D', "dry run: count what K would change", Key::EDITING, says("dryRun", true), "only counts"}},
         classify,
         checkPlace},
        {"cull",
         "hides points",
         {orNone(polygon(), "`points` or `selected`"), points(), orElse(flag("selected"), false),
          orElse(choice("side", {"inside", "outside"}), std::string("inside"))},
         {{'x', "hide the points inside", Key::EDITING, says("side", std::string("inside")), "hides inside"},
          {'X', "hide the points outside", Key::EDITING, says("side", std::string("outside")),
           "hides outside"}},
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
        {"depth",
         "edits all that is under an outline, or the front surface alone, which the eye sees",
         {choice("of", {"all", "front"}),
          where(orNone(number("tolerance", "world units", 0, kLargest), "twice the mean distance of points"),
                "of", "front"),
          where(orNone(number("radius", "pixels", 0, 1000), "what closes the gaps between points"), "of",
                "front")},
         {{'J', "depth: edit all, or the front surface alone, on / off", Key::EDITING, otherDepth}},
         depth},
        {"where",
         "edits only points with these attributes, under outlines and of the selection",
         {orNone(classes("classes", kClasses - 1), "all classes"), range("returns", ""),
          range("numberOfReturns", ""), range("intensity", ""), range("height", "world units"),
          range("source", ""), range("gpsTime", "seconds"), range("scanAngle", "degrees")},
         {},
         limitAttributes},
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
        {"undo",
         "takes the newest edit back",
         {},
         {{'z', "undo the newest edit", Key::EDITING}},
         moveInHistory<&SceneEditing::undo>},
        {"redo",
         "does again what was undone last",
         {},
         {{'y', "redo what was undone last", Key::EDITING}},
         moveInHistory<&SceneEditing::redo>},
        {"stepTo",
         "goes to how all was behind a step of the history",
         {whole("step", "", 0, 1000000000)},
         {},
         stepTo},
        {"undoAll",
         "takes all edits of this run back",
         {},
         {{'Z', "undo all edits of this run", Key::EDITING}},
         moveInHistory<&SceneEditing::undoAll>},
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

Request rangesOf(const Scene& scene)
{
    Request request(*findOperation("where"));
    const AttributeRanges& now = scene.editLimits().attributes;
    if (!now.classes.all()) request.set("classes", now.classes);
    for (const auto& [name, range] : kRanges)
        if (!(now.*range).isWhole()) request.set(name, now.*range);
    return request;
}
