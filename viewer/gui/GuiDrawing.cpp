#include "viewer/gui/GuiDrawing.h"

#include <backends/imgui_impl_opengl3.h>
#include <imgui.h>
#include <osg/GL>

#include <cmath>

void GuiDrawing::Free::operator()(ImDrawList* list) const
{
    IM_DELETE(list);
}

GuiDrawing::GuiDrawing(std::shared_ptr<const GuiContext> context) : _context(std::move(context)) {}

GuiDrawing::~GuiDrawing()
{
    const VelThreads::Lock lock(GuiContext::mutex);
    _context->makeCurrent();
    _lists.clear();
}

void GuiDrawing::take(const std::vector<Rectangle>& plain)
{
    _plain = plain;
    const ImDrawData& finished = *ImGui::GetDrawData();
    _lists.clear();
    for (int i = 0; i < finished.CmdListsCount; ++i)
        _lists.emplace_back(finished.CmdLists[i]->CloneOutput());
    _width = finished.DisplaySize.x;
    _height = finished.DisplaySize.y;
}

/// Cheaper than what Dear ImGui draws, which looks each pixel up in its texture and blends it. OSG's state
/// stays as it is.
void GuiDrawing::fill() const
{
    const bool wasCut = glIsEnabled(GL_SCISSOR_TEST);
    GLint cut[4];
    GLfloat before[4];
    glGetIntegerv(GL_SCISSOR_BOX, cut);
    glGetFloatv(GL_COLOR_CLEAR_VALUE, before);
    const ImVec4& color = ImGui::GetStyle().Colors[ImGuiCol_WindowBg];
    glEnable(GL_SCISSOR_TEST);
    glClearColor(color.x, color.y, color.z, 1);
    const auto pixels = [](float length) { return static_cast<GLint>(std::lround(length)); };
    for (const Rectangle& part : _plain) {
        glScissor(pixels(part.x), pixels(_height - part.y - part.height), pixels(part.width),
                  pixels(part.height));
        glClear(GL_COLOR_BUFFER_BIT);
    }
    glScissor(cut[0], cut[1], cut[2], cut[3]);
    glClearColor(before[0], before[1], before[2], before[3]);
    if (!wasCut) glDisable(GL_SCISSOR_TEST);
}

void GuiDrawing::operator()(osg::RenderInfo&) const
{
    const VelThreads::Lock lock(GuiContext::mutex);
    if (_lists.empty()) return;
    _context->makeCurrent();
    if (!_hasGlObjects) _hasGlObjects = ImGui_ImplOpenGL3_Init("#version 130");
    ImGui_ImplOpenGL3_NewFrame();
    fill();
    ImDrawData data;
    std::vector<ImDrawList*> lists;
    const ImTextureID letters = ImGui::GetIO().Fonts->TexID;
    for (const auto& list : _lists) {
        // The first frame is made before there is a texture; there is no other one.
        for (ImDrawCmd& command : list->CmdBuffer)
            command.TextureId = letters;
        lists.push_back(list.get());
        data.TotalIdxCount += list->IdxBuffer.Size;
        data.TotalVtxCount += list->VtxBuffer.Size;
    }
    data.Valid = true;
    data.CmdLists = lists.data();
    data.CmdListsCount = static_cast<int>(lists.size());
    data.DisplaySize = ImVec2(_width, _height);
    data.FramebufferScale = ImVec2(1, 1);
    ImGui_ImplOpenGL3_RenderDrawData(&data);
}

void GuiDrawing::releaseGLObjects(osg::State*) const
{
    const VelThreads::Lock lock(GuiContext::mutex);
    if (!_hasGlObjects) return;
    _context->makeCurrent();
    ImGui_ImplOpenGL3_Shutdown();
    _hasGlObjects = false;
}
