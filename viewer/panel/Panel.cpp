#include "viewer/panel/Panel.h"

#include "viewer/operation/Keys.h"

#include <imgui.h>

#include <algorithm>

namespace {

// Pixels of plain text.
constexpr float kWidth = 324;
constexpr float kNarrowest = 220;
constexpr float kEdge = 5;

constexpr float kWidestOfWindow = 0.6f;
constexpr ImGuiWindowFlags kFlags =
    ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoBackground | ImGuiWindowFlags_NoResize |
    ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoBringToFrontOnFocus |
    ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse;

} // namespace

Panel::Panel(Gui& gui, bool isShown) : _gui(gui), _isShown(isShown), _width(kWidth)
{
    gui.add([this] {
        if (_isShown) draw();
    });
}

void Panel::add(const std::string& title, std::function<void()> draw, bool open, int key)
{
    const auto recalled = _recalled.find(title);
    _sections.push_back(
        {title, std::move(draw), recalled != _recalled.end() ? recalled->second : open, false, key});
}

void Panel::recall(const Settings& settings)
{
    _isShown = _isShown && settings.get<bool>("panel.shown").value_or(true);
    _width = static_cast<float>(settings.get<double>("panel.width").value_or(kWidth));
    _recalled = settings.get<std::map<std::string, bool>>("panel.sections").value_or(_recalled);
}

void Panel::keep(Settings& settings) const
{
    settings.set("panel.shown", _isShown);
    settings.set("panel.width", static_cast<double>(_width));
    std::map<std::string, bool> sections = _recalled;
    for (const Section& section : _sections)
        sections[section.title] = section.open;
    settings.set("panel.sections", sections);
}

void Panel::open(const std::string& title)
{
    _isShown = true;
    for (Section& section : _sections)
        section.opens = section.opens || section.title == title;
}

void Panel::draw()
{
    const Gui::Area area = _gui.area();
    const float widest = std::max(kWidestOfWindow * area.width, 1.0f);
    const float width = std::min(std::max(_width, kNarrowest) * _gui.unit(), widest);
    ImGui::SetNextWindowPos(ImVec2(area.x, area.y));
    ImGui::SetNextWindowSize(ImVec2(width, area.height));
    ImGui::PushStyleVar(ImGuiStyleVar_WindowRounding, 0);
    ImGui::PushStyleVar(ImGuiStyleVar_WindowPadding, ImVec2(0, 0));
    ImGui::Begin("##panel", nullptr, kFlags);
    ImGui::PopStyleVar(2);
    const float edge = kEdge * _gui.unit();
    ImGui::BeginChild("sections", ImVec2(width - edge, 0), false, ImGuiWindowFlags_AlwaysUseWindowPadding);
    drawSections();
    ImGui::EndChild();
    ImGui::SameLine(0, 0);
    dragEdge(area.height);
    ImGui::End();
    _gui.takeLeft(width);
}

void Panel::drawSections()
{
    for (Section& section : _sections) {
        if (section.opens) {
            ImGui::SetNextItemOpen(true);
            ImGui::SetScrollHereY(0);
        }
        section.opens = false;
        const ImGuiTreeNodeFlags flags =
            section.open ? ImGuiTreeNodeFlags_DefaultOpen : ImGuiTreeNodeFlags_None;
        section.open = ImGui::CollapsingHeader(section.title.c_str(), flags);
        if (!section.open) continue;
        ImGui::PushID(section.title.c_str());
        section.draw();
        ImGui::Spacing();
        ImGui::PopID();
    }
}

void Panel::dragEdge(float height)
{
    ImGui::InvisibleButton("edge", ImVec2(kEdge * _gui.unit(), height));
    const bool isHeld = ImGui::IsItemActive();
    if (isHeld) _width = ImGui::GetIO().MousePos.x / _gui.unit();
    if (isHeld || ImGui::IsItemHovered())
        ImGui::GetWindowDrawList()->AddRectFilled(ImGui::GetItemRectMin(), ImGui::GetItemRectMax(),
                                                  ImGui::GetColorU32(ImGuiCol_ButtonHovered));
}

bool Panel::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getHandled() || event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN) return false;
    const int key = keyPressed(event);
    const auto section = std::find_if(_sections.begin(), _sections.end(),
                                      [key](const Section& one) { return one.key != 0 && one.key == key; });
    if (section != _sections.end())
        open(section->title);
    else if (key == osgGA::GUIEventAdapter::KEY_Tab)
        _isShown = !_isShown;
    else
        return false;
    action.requestRedraw();
    return true;
}
