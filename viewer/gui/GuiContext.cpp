#include "viewer/gui/GuiContext.h"

#include "viewer/gui/GuiStyle.h"

#include <imgui.h>

VelThreads::Mutex GuiContext::mutex;

namespace {

ImGuiContext* create(float unit)
{
    const VelThreads::Lock lock(GuiContext::mutex);
    ImGuiContext* const context = ImGui::CreateContext();
    ImGui::SetCurrentContext(context);
    ImGuiIO& io = ImGui::GetIO();
    io.IniFilename = nullptr;
    io.ConfigInputTextCursorBlink = false; // a still window draws no frames
    io.BackendFlags |= ImGuiBackendFlags_RendererHasVtxOffset;
    addFonts(*io.Fonts, unit);
    applyStyle(ImGui::GetStyle(), unit);
    return context;
}

} // namespace

GuiContext::GuiContext(float unit) : _context(create(unit)) {}

GuiContext::~GuiContext()
{
    const VelThreads::Lock lock(mutex);
    ImGui::DestroyContext(_context);
}

void GuiContext::makeCurrent() const
{
    ImGui::SetCurrentContext(_context);
}
