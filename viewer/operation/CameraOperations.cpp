#include "viewer/operation/CameraOperations.h"

#include "viewer/operation/ParameterKinds.h"

#include <algorithm>
#include <iterator>

using namespace parameter;
using osgGA::GUIEventAdapter;
using Mode = SurveyManipulator::Mode;

namespace {

Begun project(const Request& request, const Stage& stage)
{
    const auto& wanted = request.get<std::string>("kind");
    const Pose& pose = stage.camera->pose();
    const bool orthographic = wanted == "other" ? !pose.orthographic() : wanted == "orthographic";
    stage.camera->go(pose.projected(orthographic));
    return {};
}

constexpr std::pair<const char*, Mode> kModes[] = {
    {"free", Mode::FREE}, {"level", Mode::LEVEL}, {"fly", Mode::FLY}};

Begun turn(const Request& request, const Stage& stage)
{
    const auto& wanted = request.get<std::string>("how");
    for (const auto& [name, mode] : kModes)
        if (wanted == name) stage.camera->setMode(mode);
    return {};
}

Begun fit(const Request&, const Stage& stage)
{
    stage.camera->fit();
    return {};
}

Begun goBack(const Request& request, const Stage& stage)
{
    if (request.get<bool>("forward"))
        stage.camera->forward();
    else
        stage.camera->back();
    return {};
}

const std::string kNoView = "there is no saved view of this number";

/// The number of an existing view, from 0 on.
std::optional<size_t> viewOf(const Request& request, const Stage& stage)
{
    const auto number = static_cast<size_t>(request.get<int>("number"));
    if (!stage.views || number > stage.views->all().size()) return std::nullopt;
    return number - 1;
}

Begun saveView(const Request& request, const Stage& stage)
{
    stage.views->save(request.get<std::string>("name"), stage.camera->pose());
    return {};
}

Begun recallView(const Request& request, const Stage& stage)
{
    const std::optional<size_t> view = viewOf(request, stage);
    if (!view) return {Begun::DONE, kNoView};
    stage.camera->go(stage.views->all()[*view].pose);
    return {};
}

Begun renameView(const Request& request, const Stage& stage)
{
    const std::optional<size_t> view = viewOf(request, stage);
    if (!view) return {Begun::DONE, kNoView};
    const auto& name = request.get<std::string>("name");
    if (!stage.views->rename(*view, name)) return {Begun::DONE, name + ": another view has this name"};
    return {};
}

Begun deleteView(const Request& request, const Stage& stage)
{
    const std::optional<size_t> view = viewOf(request, stage);
    if (!view) return {Begun::DONE, kNoView};
    stage.views->remove(*view);
    return {};
}

Parameter viewNumber()
{
    return whole("number", "", 1, 10000);
}

/// Ctrl and a digit for each of the first views.
std::vector<Key> keysOfViews()
{
    std::vector<Key> keys;
    for (int number = 1; number <= 9; ++number)
        keys.push_back({kCtrl | ('0' + number), number == 1 ? "the saved view of this number" : nullptr,
                        Key::ALWAYS, says("number", number)});
    return keys;
}

} // namespace

std::vector<Operation> cameraOperations()
{
    std::vector<Operation> operations = {
        {"projection",
         "shows the picture in perspective or orthographic, alike at the centre",
         {orElse(choice("kind", {"perspective", "orthographic", "other"}), std::string("other"))},
         {{'c', "perspective / orthographic", Key::ALWAYS}},
         project},
        {"turning",
         "turns freely, with the horizon level, or flies",
         {choice("how", {"free", "level", "fly"})},
         {{'1', "turn freely / with a level horizon / fly", Key::ALWAYS, says("how", std::string("free"))},
          {'2', nullptr, Key::ALWAYS, says("how", std::string("level"))},
          {'3', nullptr, Key::ALWAYS, says("how", std::string("fly"))}},
         turn},
        {"fit",
         "looks at all that there is, from the same side",
         {},
         {{GUIEventAdapter::KEY_Home, "look at all that there is, from the same side", Key::ALWAYS}},
         fit},
        {"goBack",
         "shows the picture of before, or goes forward again",
         {orElse(flag("forward"), false)},
         {{kAlt | GUIEventAdapter::KEY_Left, "the picture of before / forward again", Key::ALWAYS},
          {kAlt | GUIEventAdapter::KEY_Right, nullptr, Key::ALWAYS, says("forward", true)}},
         goBack},
        {"recallView", "looks as a saved view does", {viewNumber()}, keysOfViews(), recallView},
        {"saveView", "keeps the view of now by a name", {text("name")}, {}, saveView},
        {"renameView", "gives a saved view another name", {viewNumber(), text("name")}, {}, renameView},
        {"deleteView", "forgets a saved view", {viewNumber()}, {}, deleteView},
    };
    for (Operation& operation : operations)
        operation.windowOnly = true;
    return operations;
}
