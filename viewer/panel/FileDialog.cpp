#include "viewer/panel/FileDialog.h"

#include "terminal/Text.h"

#include <imgui.h>
#include <imgui_stdlib.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr float kWidth = 42;  ///< letters' heights
constexpr float kHeight = 30; ///< likewise

std::string lowered(std::string text)
{
    for (char& letter : text)
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return text;
}

bool endsWith(const std::string& text, const std::string& ending)
{
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

std::string sizeText(uint64_t bytes)
{
    constexpr uint64_t kMega = 1000000;
    return bytes >= kMega ? grouped((bytes + kMega / 2) / kMega) + " MB"
                          : grouped((bytes + 999) / 1000) + " kB";
}

bool isPressed(ImGuiKey key)
{
    return ImGui::IsKeyPressed(ImGui::GetKeyIndex(key));
}

/// A user's home for a leading "~".
std::string withHome(const std::string& text)
{
    const char* const home = std::getenv("HOME");
    return home && (text == "~" || text.rfind("~/", 0) == 0) ? home + text.substr(1) : text;
}

} // namespace

FileDialog::FileDialog(Kind kind, const std::string& title, std::vector<std::string> endings)
    : _kind(kind), _title(title), _endings(std::move(endings))
{
}

void FileDialog::ask(const std::string& folder, const std::string& name)
{
    std::error_code error;
    show(fs::is_directory(folder, error) ? folder : fs::current_path(error).string());
    _typed = name;
    _asks = true;
    _begins = true;
}

void FileDialog::show(const std::string& folder)
{
    _folder = fs::path(folder).lexically_normal().string();
    if (_folder.size() > 1 && _folder.back() == '/') _folder.pop_back();
    _reader.read(_folder);
    if (_kind == OPEN) _typed.clear();
    _problem.clear();
    _marked.clear();
    _current.clear();
}

std::string FileDialog::parent() const
{
    return fs::path(_folder).parent_path().string();
}

/// Of the listing, what is shown: letters that were typed narrow it.
std::vector<const FileDialog::Entry*> FileDialog::rows()
{
    const std::string part = _kind == OPEN ? lowered(_typed) : std::string();
    std::vector<const Entry*> rows;
    for (const Entry& entry : _reader.listing().entries) {
        const std::string name = lowered(entry.name);
        const bool isListed =
            entry.isFolder || std::any_of(_endings.begin(), _endings.end(),
                                          [&](const std::string& ending) { return endsWith(name, ending); });
        if (isListed && name.find(part) != std::string::npos) rows.push_back(&entry);
    }
    return rows;
}

std::vector<std::string> FileDialog::draw()
{
    if (!_asks) return {};
    if (const std::string next = std::exchange(_next, {}); !next.empty()) show(next);
    _reader.update();
    const float letter = ImGui::GetFontSize();
    const ImVec2 screen = ImGui::GetIO().DisplaySize;
    if (_begins) ImGui::OpenPopup(_title.c_str());
    ImGui::SetNextWindowSize(
        ImVec2(std::min(kWidth * letter, screen.x * 0.95f), std::min(kHeight * letter, screen.y * 0.95f)));
    ImGui::SetNextWindowPos(ImVec2(screen.x / 2, screen.y / 2), ImGuiCond_Always, ImVec2(0.5f, 0.5f));
    if (ImGui::BeginPopupModal(_title.c_str(), nullptr,
                               ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove |
                                   ImGuiWindowFlags_NoSavedSettings)) {
        const std::vector<const Entry*> shown = rows();
        drawFolder();
        drawList(shown);
        moveByKeys(shown);
        drawField();
        if (isPressed(ImGuiKey_Escape)) _asks = false;
        if (!_asks) ImGui::CloseCurrentPopup();
        ImGui::EndPopup();
    } else if (!_begins)
        _asks = false;
    _begins = false;
    return std::exchange(_chosen, {});
}

void FileDialog::drawFolder()
{
    if (ImGui::Button("Up")) goTo(parent());
    ImGui::SameLine();
    ImGui::AlignTextToFramePadding();
    ImGui::TextUnformatted(_folder.c_str());
}

void FileDialog::drawList(const std::vector<const Entry*>& rows)
{
    const float below = 2 * ImGui::GetFrameHeightWithSpacing() + ImGui::GetTextLineHeightWithSpacing();
    ImGui::BeginChild("list", ImVec2(0, -below), true);
    const std::string& problem = _reader.listing().problem;
    if (!_reader.isRead())
        ImGui::TextDisabled("reading the folder ...");
    else if (!problem.empty())
        ImGui::TextWrapped("%s", problem.c_str());
    else if (rows.empty())
        ImGui::TextDisabled("nothing here that can be chosen");
    const auto current =
        std::find_if(rows.begin(), rows.end(), [&](const Entry* entry) { return entry->name == _current; });
    ImGuiListClipper clipper;
    clipper.Begin(static_cast<int>(rows.size()));
    if (_scrolls && current != rows.end())
        clipper.ForceDisplayRangeByIndices(static_cast<int>(current - rows.begin()),
                                           static_cast<int>(current - rows.begin()) + 1);
    const Entry* entered = nullptr;
    while (clipper.Step())
        for (int row = clipper.DisplayStart; row < clipper.DisplayEnd; ++row) {
            const Entry& entry = *rows[static_cast<size_t>(row)];
            drawRow(entry);
            if (ImGui::IsItemHovered() && ImGui::IsMouseDoubleClicked(ImGuiMouseButton_Left))
                entered = &entry;
        }
    ImGui::EndChild();
    if (entered) enter(*entered);
}

void FileDialog::drawRow(const Entry& entry)
{
    const bool isMarked = entry.name == _current || _marked.count(entry.name) > 0;
    const std::string label = entry.name + (entry.isFolder ? "/" : "") + "##row";
    if (ImGui::Selectable(label.c_str(), isMarked,
                          ImGuiSelectableFlags_DontClosePopups | ImGuiSelectableFlags_AllowDoubleClick)) {
        if (!ImGui::GetIO().KeyCtrl)
            _marked.clear();
        else if (!_current.empty())
            _marked.insert({_current, entry.name});
        _current = entry.name;
        if (_kind == SAVE && !entry.isFolder) _typed = entry.name;
    }
    if (entry.name == _current && std::exchange(_scrolls, false)) ImGui::SetScrollHereY();
    if (entry.isFolder) return;
    const std::string size = sizeText(entry.size);
    ImGui::SameLine(ImGui::GetWindowContentRegionMax().x - ImGui::CalcTextSize(size.c_str()).x);
    ImGui::TextDisabled("%s", size.c_str());
}

void FileDialog::moveByKeys(const std::vector<const Entry*>& rows)
{
    if (_typed.empty() && isPressed(ImGuiKey_Backspace)) {
        goTo(parent());
        return;
    }
    const int step = isPressed(ImGuiKey_DownArrow) - isPressed(ImGuiKey_UpArrow);
    if (step == 0 || rows.empty()) return;
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const Entry* entry) { return entry->name == _current; });
    const auto last = static_cast<ptrdiff_t>(rows.size()) - 1;
    const ptrdiff_t place = found == rows.end() ? (step > 0 ? 0 : last) : found - rows.begin() + step;
    const Entry& next = *rows[static_cast<size_t>(std::clamp<ptrdiff_t>(place, 0, last))];
    _current = next.name;
    _marked.clear();
    _scrolls = true;
    if (_kind == SAVE && !next.isFolder) _typed = next.name;
}

void FileDialog::drawField()
{
    if (!_problem.empty())
        ImGui::TextColored(ImVec4(1.0f, 0.62f, 0.35f, 1.0f), "%s", _problem.c_str());
    else
        ImGui::TextDisabled(_kind == OPEN ? "letters narrow the list; a path begins with / or ~"
                                          : "the ending says what is written: .las, .laz or .copc.laz");
    ImGui::SetNextItemWidth(-1);
    if (_begins || ImGui::IsWindowAppearing()) ImGui::SetKeyboardFocusHere();
    const bool wasEmpty = _typed.empty();
    const bool isAccepted = ImGui::InputText("##name", &_typed, ImGuiInputTextFlags_EnterReturnsTrue);
    if (ImGui::IsItemEdited() && _kind == OPEN) {
        _current.clear();
        _marked.clear();
        if (!wasEmpty || !_typed.empty()) _problem.clear();
    }
    if (isAccepted) ImGui::SetKeyboardFocusHere(-1);
    if (ImGui::Button(_kind == OPEN ? "Open" : "Save") || isAccepted) accept();
    ImGui::SameLine();
    if (ImGui::Button("Cancel")) _asks = false;
}

/// What is marked, or what was typed, or where the keys are.
void FileDialog::accept()
{
    const fs::path folder = _folder;
    if (!_marked.empty()) {
        for (const std::string& name : _marked)
            _chosen.push_back((folder / name).string());
        _asks = false;
        return;
    }
    const std::vector<const Entry*> shown = rows();
    const auto current =
        std::find_if(shown.begin(), shown.end(), [&](const Entry* entry) { return entry->name == _current; });
    if (current != shown.end() && (_kind == OPEN || (*current)->isFolder)) {
        enter(**current);
        return;
    }
    const std::string typed = withHome(_typed);
    const bool isName = typed.find('/') == std::string::npos;
    std::error_code error;
    if (_kind == OPEN && isName && shown.size() == 1 && !fs::exists(folder / typed, error))
        enter(*shown.front());
    else if (!typed.empty())
        acceptPath((folder / typed).lexically_normal().string());
}

void FileDialog::enter(const Entry& entry)
{
    const std::string path = (fs::path(_folder) / entry.name).string();
    if (entry.isFolder)
        goTo(path);
    else
        acceptPath(path);
}

void FileDialog::acceptPath(const std::string& path)
{
    std::error_code error;
    if (fs::is_directory(path, error)) {
        goTo(path);
        return;
    }
    const bool isThere = fs::exists(_kind == OPEN ? fs::path(path) : fs::path(path).parent_path(), error);
    if (!isThere) {
        _problem = path + (_kind == OPEN ? ": is not there" : ": its folder is not there");
        return;
    }
    _chosen = {path};
    _asks = false;
}
