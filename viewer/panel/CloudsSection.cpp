#include "viewer/panel/CloudsSection.h"

#include "terminal/ShownName.h"
#include "terminal/Text.h"
#include "viewer/edit/EditText.h"
#include "viewer/operation/FileOperations.h"
#include "viewer/operation/Operations.h"
#include "viewer/panel/Widgets.h"
#include "viewer/scene/HomeBounds.h"

#include <imgui.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

namespace fs = std::filesystem;

namespace {

bool comesBefore(const Scene::Cloud& a, const Scene::Cloud& b)
{
    return a.order < b.order;
}

constexpr size_t kMostRows = 8; ///< that are seen at once: the other sections are below

/// A button with its key beside it in the tool tip.
bool button(const char* label, const std::string& tip)
{
    const bool pressed = ImGui::Button(label);
    widgets::tip(tip);
    return pressed;
}

} // namespace

CloudsSection::CloudsSection(const Stage& stage, CloudFiles& files, FileQuestions& questions)
    : _stage(stage), _files(files), _questions(questions)
{
}

uint64_t CloudsSection::current() const
{
    if (_stage.scene.findCloud(_current)) return _current;
    const std::vector<Scene::Cloud>& clouds = _stage.scene.clouds();
    const auto first = std::min_element(clouds.begin(), clouds.end(), comesBefore);
    return first == clouds.end() ? 0 : first->id;
}

void CloudsSection::tell(const std::string& problem)
{
    _problems.push_back(problem);
}

void CloudsSection::draw()
{
    drawButtons();
    drawProblems();
    drawWaiting();
    if (_stage.scene.isEmpty()) {
        ImGui::PushStyleColor(ImGuiCol_Text, ImGui::GetStyleColorVec4(ImGuiCol_TextDisabled));
        ImGui::TextWrapped("Nothing is open. Open LAS and LAZ files, stores or a folder of stores, or drop "
                           "them on the window.");
        ImGui::PopStyleColor();
        return;
    }
    const ImGuiStyle& style = ImGui::GetStyle();
    const size_t rows = _stage.scene.clouds().size() + _stage.scene.previews().size();
    const bool scrolls = rows > kMostRows;
    const float row = ImGui::GetFrameHeight() + 2 * ImGui::GetTextLineHeightWithSpacing();
    const ImVec2 size(0, scrolls ? kMostRows * row : 0);
    constexpr ImGuiTableFlags kFlags = ImGuiTableFlags_SizingStretchProp;
    if (!ImGui::BeginTable("clouds", 3, scrolls ? kFlags | ImGuiTableFlags_ScrollY : kFlags, size)) return;
    const float buttons = ImGui::CalcTextSize("Frame").x + ImGui::CalcTextSize("x").x +
                          4 * style.FramePadding.x + style.ItemSpacing.x;
    ImGui::TableSetupColumn("eye", ImGuiTableColumnFlags_WidthFixed, ImGui::GetFrameHeight());
    ImGui::TableSetupColumn("name", ImGuiTableColumnFlags_WidthStretch);
    ImGui::TableSetupColumn("do", ImGuiTableColumnFlags_WidthFixed, buttons);
    for (const Scene::Cloud& preview : _stage.scene.previews())
        drawPreview(preview);
    const std::vector<Scene::Cloud>& clouds = _stage.scene.clouds();
    sortRows();
    ImGuiListClipper visible; // thousands of rows would take longer than the picture
    visible.Begin(static_cast<int>(_rows.size()));
    while (visible.Step())
        for (int i = visible.DisplayStart; i < visible.DisplayEnd; ++i)
            drawCloud(clouds[_rows[static_cast<size_t>(i)]]);
    ImGui::EndTable();
}

void CloudsSection::drawButtons()
{
    if (button("Open ...", "Open stores, LAS and LAZ files\nKey: Ctrl+O")) _questions.askToOpen();
    ImGui::SameLine();
    if (button("Recent", "Files that were open before")) ImGui::OpenPopup("recent");
    drawRecent();
    ImGui::SameLine();
    if (button("Save", "Save the classes into the stores\nKey: Ctrl+S"))
        _stage.act(Request(*findOperation("save")));
    ImGui::SameLine();
    if (button("Export ...", "Write the chosen cloud to a LAS, LAZ or COPC file\nKey: Ctrl+Shift+S"))
        _questions.askToExport(current());
}

/// How many of a folder's stores nothing but their boxes is shown of.
void CloudsSection::drawWaiting()
{
    const size_t waiting = _stage.scene.waiting().size();
    if (waiting == 0) return;
    const size_t open = _stage.scene.clouds().size();
    ImGui::TextWrapped("%s of %s stores are open", grouped(open).c_str(), grouped(open + waiting).c_str());
    widgets::tip("The others are opened when a view shows them");
    ImGui::SameLine();
    if (button("Open all", "Open the others, too: what is about all points needs them"))
        _stage.act(Request(*findOperation("openAll")));
}

void CloudsSection::drawRecent()
{
    if (!ImGui::BeginPopup("recent")) return;
    const std::vector<std::string> recent = _files.recent();
    if (recent.empty()) ImGui::TextDisabled("none yet");
    for (const std::string& path : recent) {
        if (ImGui::MenuItem((fs::path(path).filename().string() + "##" + path).c_str()))
            _stage.act(openRequest(path));
        widgets::tip(path);
    }
    ImGui::EndPopup();
}

/// Those of a folder by their names, in whatever order they were opened.
void CloudsSection::sortRows()
{
    const std::vector<Scene::Cloud>& clouds = _stage.scene.clouds();
    if (_revision == _stage.scene.cloudsRevision()) return;
    _revision = _stage.scene.cloudsRevision();
    _rows.resize(clouds.size());
    std::iota(_rows.begin(), _rows.end(), size_t{0});
    std::sort(_rows.begin(), _rows.end(),
              [&](size_t a, size_t b) { return comesBefore(clouds[a], clouds[b]); });
}

void CloudsSection::drawCloud(const Scene::Cloud& cloud)
{
    ImGui::PushID(static_cast<int>(cloud.id));
    ImGui::TableNextRow();
    ImGui::TableNextColumn();
    bool shown = cloud.shown;
    if (ImGui::Checkbox("##eye", &shown)) _stage.editing.setShown(cloud.id, shown);
    widgets::tip("Show the cloud; one that is not shown is not edited");
    ImGui::TableNextColumn();
    if (ImGui::Selectable(fs::path(cloud.store).filename().string().c_str(), cloud.id == current()))
        _current = cloud.id;
    widgets::tip(cloud.store);
    drawFacts(cloud);
    ImGui::TableNextColumn();
    if (button("Frame", "Look at this cloud")) lookAtCloud(cloud);
    ImGui::SameLine();
    if (button("x", "Close the cloud\nKey: Ctrl+W, for the chosen one")) _questions.askToClose(cloud.id);
    ImGui::PopID();
}

/// Below its name how many points it has and in which system; one line each, so that all rows are as high.
void CloudsSection::drawFacts(const Scene::Cloud& cloud)
{
    ImGui::TextDisabled("%s points", grouped(cloud.points).c_str());
    ImGui::TextDisabled("%s",
                        cloud.system ? shownName(cloud.system->name()).c_str() : "no coordinate system");
    widgets::tip(cloud.system ? cloud.system->description() : "The file states none that is known");
}

void CloudsSection::drawPreview(const Scene::Cloud& preview)
{
    const std::optional<JobQueue::State> opening = _files.openingOf(preview.id);
    if (!opening) return; // its store is in the list
    ImGui::PushID(static_cast<int>(preview.id));
    ImGui::TableNextRow();
    ImGui::TableNextColumn();
    ImGui::TableNextColumn();
    ImGui::Text("%s", fs::path(preview.store).filename().string().c_str());
    widgets::tip(preview.store + "\nA sample of its points, while its store is built. It can be looked at; "
                                 "edits, picks and exports wait for the store");
    ImGui::Text("preview, %.0f %%", 100 * opening->share);
    drawFacts(preview);
    ImGui::TableNextColumn();
    if (button("Frame", "Look at this survey")) lookAtCloud(preview);
    ImGui::SameLine();
    if (button("x", "Do not open it: the build is cancelled")) _files.cancelOpening(opening->id);
    ImGui::PopID();
}

void CloudsSection::lookAtCloud(const Scene::Cloud& cloud)
{
    const ImVec2 window = ImGui::GetIO().DisplaySize;
    CameraView view;
    view.kind = CameraView::LOOK;
    view.look = lookAt(CameraView(), boundsOfMost(cloud.bounds, cloud.bulk), window.x / window.y);
    _stage.look(view, Lens());
}

void CloudsSection::drawProblems()
{
    if (_problems.empty()) return;
    ImGui::PushStyleColor(ImGuiCol_Text, ImVec4(1.0f, 0.62f, 0.35f, 1.0f));
    for (const std::string& problem : firstOf(_problems))
        ImGui::TextWrapped("%s", problem.c_str());
    ImGui::PopStyleColor();
    if (ImGui::SmallButton("Dismiss")) _problems.clear();
}
