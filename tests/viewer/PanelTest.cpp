// What the parts of a window show, widget by widget and text by text. The linker puts the functions at the
// end of this file before those of Dear ImGui.

#include "tests/support/BuildStore.h"
#include "tests/support/Eventually.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestSurvey.h"
#include "viewer/script/RequestReader.h"
#include "viewer/window/WindowParts.h"

#include <gtest/gtest.h>

#include <imgui.h>
#include <imgui_internal.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

namespace {

/// Of the last frame.
std::map<ImGuiID, std::vector<ImVec2>> places; ///< of the widgets that have an id
std::vector<std::string> texts;

void note(const char* begin, const char* end)
{
    texts.emplace_back(begin, end ? end : begin + std::char_traits<char>::length(begin));
}

/// A window with all sections of the panel open.
class PanelTest : public testing::Test
{
protected:
    PanelTest()
    {
        std::map<std::string, bool> sections;
        for (const char* const title :
             {"Clouds", "Classes", "History", "Tools", "View", "Section", "Look", "Surface", "Measure"})
            sections[title] = true;
        settings.set("panel.sections", sections);
        host.show(scene.root());
        for (const char* const name : {"a", "b"})
            options.inputs.push_back(add(name));
        parts.emplace(*host.viewer, scene, *host.window, options, settings);
        EXPECT_TRUE(eventually([&] { return frame(), scene.clouds().size() == 2; }));
    }

    void TearDown() override
    {
        finish();
        parts->editing->undoAll();
        finish();
    }

    /// Path of a store that is east of those before.
    std::string add(const std::string& name)
    {
        TestSurvey survey;
        survey.side = 10;
        survey.classes = 2;
        survey.x += 20 * stores++;
        EXPECT_TRUE(survey.write(folder.file("next.las")));
        buildStoreOf(folder.file("next.las"), folder.file(name + ".brx"));
        return folder.file(name + ".brx");
    }

    void frame()
    {
        host.viewer->advance();
        host.viewer->eventTraversal();
        host.viewer->updateTraversal();
        places.clear();
        texts.clear();
        parts->gui->update();
        host.viewer->renderingTraversals();
        parts->files->update(true);
    }

    void finish()
    {
        frame();
        while (parts->editing->isBusy())
            frame();
        frame();
    }

    void act(const std::string& operation, const nlohmann::json& members = nlohmann::json::object())
    {
        Request request(*findOperation(operation));
        const VelBrx::Status read = script::readRequest(members, request);
        EXPECT_TRUE(read) << operation << ": " << read.message();
        parts->editKeys->act(request);
        finish();
    }

    /// Whether a text begins so.
    static bool shows(const std::string& beginning)
    {
        return std::any_of(texts.begin(), texts.end(),
                           [&](const std::string& text) { return text.rfind(beginning, 0) == 0; });
    }

    const TempFolder folder;
    int stores = 0;
    HeadlessViewer host{1000, 2600, osgViewer::ViewerBase::SingleThreaded};
    Scene scene;
    Settings settings{""};
    Options options;
    std::optional<WindowParts> parts;
};

} // namespace

TEST_F(PanelTest, EachWidgetHasAnIdOfItsOwnAndTextsFollowWhatHappens)
{
    const TestSurvey survey;
    const auto at = [&](double east, double north) {
        return nlohmann::json{survey.x + east, survey.y + north, survey.z};
    };
    for (const double end : {5, 9})
        act("measure", {{"kind", "distance"}, {"points", {at(0, 0), at(end, end)}}});
    for (const char* const name : {"first", "second"})
        act("saveView", {{"name", name}});
    act("section", {{"from", {survey.x, survey.y}}, {"to", {survey.x + 9, survey.y + 9}}});
    act("surface", {{"on", true}});
    act("mode", {{"mode", "class"}});
    const auto inLegend = [&](const std::string& name) {
        const std::vector<Legend::Entry> entries = scene.legend().entries;
        return std::any_of(entries.begin(), entries.end(),
                           [&](const Legend::Entry& entry) { return entry.text == name; });
    };
    act("classify", {{"polygon", {{0, 0}, {1000, 0}, {1000, 2600}, {0, 2600}}}, {"to", 9}});
    EXPECT_TRUE(eventually([&] { return frame(), shows("water"); }));
    EXPECT_TRUE(inLegend("9 water"));
    for (const auto& [id, corners] : places)
        EXPECT_TRUE(id == 0 || corners.size() == 1) << corners.size() << " widgets share an id, the last at "
                                                    << corners.back().x << ", " << corners.back().y;
    EXPECT_GT(places.size(), 100u);
    act("undo");
    EXPECT_TRUE(eventually([&] { return frame(), !inLegend("9 water"); }));

    // Five lines are shown, the gravest first, for a while from when somebody is there.
    parts->editKeys->mention(std::vector<std::string>(9, "news"));
    parts->editKeys->warn("a warning");
    parts->editKeys->warn("a damage", EditKeys::Gravity::DAMAGE);
    frame();
    EXPECT_TRUE(shows("a damage") && shows("a warning") && shows("6 more; standard error"));
    host.window->getEventQueue()->mouseMotion(900, 100);
    frame();
    const auto someone = std::chrono::steady_clock::now();
    std::ofstream(folder.file("classes.json")) << R"({"classes": [{"code": 2, "name": 7}]})";
    act("open", {{"file", add("c")}});
    EXPECT_TRUE(eventually([&] { return frame(), scene.clouds().size() == 3; }));
    EXPECT_TRUE(eventually([&] { return frame(), shows(folder.file("classes.json: item 1")); })) << "broken";
    EXPECT_TRUE(shows("ground")) << "the names that there were";
    std::this_thread::sleep_until(someone + std::chrono::seconds(18));
    frame();
    EXPECT_TRUE(shows("a warning"));
    EXPECT_TRUE(eventually([&] { return frame(), !shows("a warning"); }));
    EXPECT_GT(std::chrono::steady_clock::now() - someone, std::chrono::seconds(19));
}

extern "C" bool __real__ZN5ImGui7ItemAddERK6ImRectjPS1_i(const ImRect& box, ImGuiID id, const ImRect* nav,
                                                         int flags);
extern "C" bool __wrap__ZN5ImGui7ItemAddERK6ImRectjPS1_i(const ImRect& box, ImGuiID id, const ImRect* nav,
                                                         int flags)
{
    places[id].push_back(box.Min);
    return __real__ZN5ImGui7ItemAddERK6ImRectjPS1_i(box, id, nav, flags);
}

extern "C" void __real__ZN5ImGui17RenderTextWrappedE6ImVec2PKcS2_f(ImVec2 place, const char* begin,
                                                                   const char* end, float width);
extern "C" void __wrap__ZN5ImGui17RenderTextWrappedE6ImVec2PKcS2_f(ImVec2 place, const char* begin,
                                                                   const char* end, float width)
{
    note(begin, end);
    __real__ZN5ImGui17RenderTextWrappedE6ImVec2PKcS2_f(place, begin, end, width);
}

extern "C" void __real__ZN5ImGui17RenderTextClippedERK6ImVec2S2_PKcS4_PS1_S2_PK6ImRect(
    const ImVec2& least, const ImVec2& most, const char* begin, const char* end, const ImVec2* size,
    const ImVec2& align, const ImRect* clip);
extern "C" void __wrap__ZN5ImGui17RenderTextClippedERK6ImVec2S2_PKcS4_PS1_S2_PK6ImRect(
    const ImVec2& least, const ImVec2& most, const char* begin, const char* end, const ImVec2* size,
    const ImVec2& align, const ImRect* clip)
{
    note(begin, end);
    __real__ZN5ImGui17RenderTextClippedERK6ImVec2S2_PKcS4_PS1_S2_PK6ImRect(least, most, begin, end, size,
                                                                           align, clip);
}
