#include "viewer/panel/FileQuestions.h"

#include "terminal/Text.h"
#include "viewer/operation/FileOperations.h"
#include "viewer/operation/Operations.h"

#include <imgui.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

const std::string kExportFolder = "files.exportFolder";
const std::vector<std::string> kPointFiles = {".las", ".laz"};
constexpr float kBarWidth = 26;    ///< letters' heights
constexpr float kBarMargin = 1.5f; ///< likewise
constexpr float kQuestionWidth = 34;

bool isPressed(ImGuiKey key)
{
    return ImGui::IsKeyPressed(ImGui::GetKeyIndex(key), false);
}

/// "survey" of "survey.las.brx".
std::string stemOf(const std::string& store)
{
    fs::path name = fs::path(store).filename();
    while (name.has_extension())
        name = name.stem();
    return name.string();
}

bool namesPointFile(const std::string& path)
{
    std::string ending = fs::path(path).extension().string();
    for (char& letter : ending)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return ending == ".las" || ending == ".laz";
}

} // namespace

FileQuestions::FileQuestions(const Stage& stage, CloudFiles& files, Settings& settings)
    : _stage(stage), _files(files), _settings(settings),
      _openDialog(FileDialog::OPEN, "Open stores, LAS and LAZ files", {".brx", ".las", ".laz"}),
      _exportDialog(FileDialog::SAVE, "Export as LAS, LAZ or COPC", kPointFiles)
{
}

void FileQuestions::ask(const std::string& text, std::vector<std::pair<std::string, Action>> answers)
{
    _question = Question{text, std::move(answers)};
}

/// Where the last file was, however it was opened.
void FileQuestions::askToOpen()
{
    const std::vector<std::string> recent = _files.recent();
    _openDialog.ask(recent.empty() ? "" : fs::path(recent.front()).parent_path().string());
}

uint64_t FileQuestions::unsavedIn(const Scene::Cloud& cloud) const
{
    const std::map<std::string, uint64_t> unsaved = _stage.editing.unsavedPoints();
    const auto found = unsaved.find(cloud.store);
    return found == unsaved.end() ? 0 : found->second;
}

void FileQuestions::askToExport(uint64_t cloud)
{
    const Scene::Cloud* const asked = _stage.scene.findCloud(cloud);
    if (!asked) return;
    const uint64_t unsaved = unsavedIn(*asked);
    if (unsaved == 0) {
        chooseName(cloud);
        return;
    }
    ask(asked->store + ": the classes of " + grouped(unsaved) +
            " points are not saved. An export has what is saved.",
        {{"Save, then export", [=] { saveFirst(cloud, [=] { chooseName(cloud); }); }},
         {"Export without them", [=] { chooseName(cloud); }},
         {"Cancel", [] {}}});
}

void FileQuestions::askToClose(uint64_t cloud)
{
    const Scene::Cloud* const asked = _stage.scene.findCloud(cloud);
    if (!asked) return;
    const uint64_t unsaved = unsavedIn(*asked);
    Request request(*findOperation("close"));
    request.set("cloud", asked->store);
    request.set("evenIfLost", true);
    const auto close = [this, request] { _stage.act(request); };
    if (unsaved == 0) {
        close();
        return;
    }
    const bool areLost = _stage.editing.unkeptPoints().count(asked->store) > 0;
    ask(asked->store + ": the classes of " + grouped(unsaved) + " points are not saved.",
        {{"Save and close", [=] { saveFirst(cloud, close); }},
         {areLost ? "Close, they are lost" : "Close, the journal keeps them", close},
         {"Cancel", [] {}}});
}

void FileQuestions::saveFirst(uint64_t cloud, Action then)
{
    _stage.act(Request(*findOperation("save")));
    _saved = cloud;
    _then = std::move(then);
    _saveBegins = true;
}

/// A save that failed has told why; nothing follows then.
void FileQuestions::goOnAfterSave()
{
    if (!_then || std::exchange(_saveBegins, false) || _stage.editing.isBusy()) return;
    const Scene::Cloud* const cloud = _stage.scene.findCloud(_saved);
    const Action then = std::exchange(_then, nullptr);
    if (cloud && unsavedIn(*cloud) == 0) then();
}

void FileQuestions::chooseName(uint64_t cloud)
{
    const Scene::Cloud* const asked = _stage.scene.findCloud(cloud);
    if (!asked) return;
    _exported = cloud;
    const std::string beside = fs::path(asked->store).parent_path().string();
    _exportDialog.ask(_settings.get<std::string>(kExportFolder).value_or(beside),
                      stemOf(asked->store) + "-edited.laz");
}

void FileQuestions::exportTo(std::string path)
{
    const Scene::Cloud* const cloud = _stage.scene.findCloud(_exported);
    if (!cloud) return;
    if (!namesPointFile(path)) path += ".laz";
    Request request(*findOperation("export"));
    request.set("file", path);
    request.set("cloud", cloud->store);
    std::error_code error;
    if (!fs::exists(path, error)) {
        _stage.act(request);
        return;
    }
    const auto replace = [this, request]() mutable {
        request.set("replace", true);
        _stage.act(request);
    };
    ask(path + " is there already.",
        {{"Another name",
          [=] { _exportDialog.ask(_exportDialog.folder(), fs::path(path).filename().string()); }},
         {"Replace it", replace},
         {"Cancel", [] {}}});
}

void FileQuestions::draw()
{
    goOnAfterSave();
    if (const std::vector<std::string> chosen = _openDialog.draw(); !chosen.empty()) {
        for (const std::string& path : chosen)
            _stage.act(openRequest(path));
    }
    if (const std::vector<std::string> chosen = _exportDialog.draw(); !chosen.empty()) {
        _settings.set(kExportFolder, _exportDialog.folder());
        exportTo(chosen.front());
    }
    drawQuestion();
    drawJobs();
}

void FileQuestions::drawQuestion()
{
    if (!_question) return;
    constexpr const char* kTitle = "brxview##question";
    const bool begins = std::exchange(_question->begins, false); // the key that led here is no answer
    if (begins) ImGui::OpenPopup(kTitle);
    const ImVec2 screen = ImGui::GetIO().DisplaySize;
    ImGui::SetNextWindowPos(ImVec2(screen.x / 2, screen.y / 2), ImGuiCond_Always, ImVec2(0.5f, 0.5f));
    if (!ImGui::BeginPopupModal(kTitle, nullptr,
                                ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoTitleBar |
                                    ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings))
        return;
    const auto& answers = _question->answers;
    const std::pair<std::string, Action>* given = nullptr;
    ImGui::PushTextWrapPos(kQuestionWidth * ImGui::GetFontSize());
    ImGui::TextUnformatted(_question->text.c_str());
    ImGui::PopTextWrapPos();
    ImGui::Spacing();
    for (const auto& answer : answers) {
        if (ImGui::Button(answer.first.c_str())) given = &answer;
        if (&answer != &answers.back()) ImGui::SameLine();
    }
    ImGui::TextDisabled("Enter: %s    Esc: %s", answers.front().first.c_str(), answers.back().first.c_str());
    if (!begins && (isPressed(ImGuiKey_Enter) || isPressed(ImGuiKey_KeyPadEnter))) given = &answers.front();
    if (!begins && isPressed(ImGuiKey_Escape)) given = &answers.back();
    if (given) ImGui::CloseCurrentPopup();
    ImGui::EndPopup();
    if (!given) return;
    const Action action = given->second;
    _question.reset();
    action();
}

void FileQuestions::drawJobs()
{
    const std::vector<JobQueue::State> openings = _files.openings();
    const std::vector<JobQueue::State> exports = _files.exports();
    if (openings.empty() && exports.empty()) return;
    const float letter = ImGui::GetFontSize();
    const ImVec2 screen = ImGui::GetIO().DisplaySize;
    ImGui::SetNextWindowPos(ImVec2(screen.x - kBarMargin * letter, screen.y - 2 * kBarMargin * letter),
                            ImGuiCond_Always, ImVec2(1, 1));
    ImGui::Begin("##files", nullptr,
                 ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove |
                     ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoFocusOnAppearing |
                     ImGuiWindowFlags_NoNav);
    if (!openings.empty()) {
        drawJob(openings.front(), [this](uint64_t id) { _files.cancelOpening(id); });
        if (openings.size() > 1) {
            ImGui::Text("%s more to open", grouped(openings.size() - 1).c_str());
            ImGui::SameLine();
            if (ImGui::SmallButton("Cancel all"))
                for (const JobQueue::State& job : openings)
                    _files.cancelOpening(job.id);
        }
    }
    for (const JobQueue::State& job : exports)
        drawJob(job, [this](uint64_t id) { _files.cancelExport(id); });
    ImGui::End();
}

void FileQuestions::drawJob(const JobQueue::State& job, const std::function<void(uint64_t)>& cancel)
{
    ImGui::PushID(static_cast<int>(job.id));
    ImGui::Text("%s: %s", job.title.c_str(),
                job.isCancelled     ? "being cancelled"
                : job.stage.empty() ? "waiting"
                                    : job.stage.c_str());
    ImGui::ProgressBar(job.share, ImVec2(kBarWidth * ImGui::GetFontSize(), 0));
    ImGui::SameLine();
    if (ImGui::Button("Cancel")) cancel(job.id);
    ImGui::PopID();
}
