#include "viewer/gui/GuiDrawing.h"

#include <backends/imgui_impl_opengl3.h>
#include <imgui.h>

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

void GuiDrawing::take()
{
    const ImDrawData& finished = *ImGui::GetDrawData();
    _lists.clear();
    for (int i = 0; i < finished.CmdListsCount; ++i)
        _lists.emplace_back(finished.CmdLists[i]->CloneOutput());
    _width = finished.DisplaySize.x;
    _height = finished.DisplaySize.y;
}

void GuiDrawing::operator()(osg::RenderInfo&) const
{
    const VelThreads::Lock lock(GuiContext::mutex);
    if (_lists.empty()) return;
    _context->makeCurrent();
    if (!_hasGlObjects) _hasGlObjects = ImGui_ImplOpenGL3_Init("#version 130");
    ImGui_ImplOpenGL3_NewFrame();
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
