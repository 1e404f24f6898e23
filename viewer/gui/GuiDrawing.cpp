#include "viewer/gui/GuiDrawing.h"

#include <backends/imgui_impl_opengl3.h>
#include <imgui.h>
#include <osg/GL>
#include <osg/GLExtensions>
#include <osg/RenderInfo>
#include <osg/State>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using Rectangle = GuiDrawing::Rectangle;

template <class Item>
bool sameItems(const ImVector<Item>& a, const ImVector<Item>& b)
{
    return a.Size == b.Size && std::memcmp(a.Data, b.Data, static_cast<size_t>(a.Size) * sizeof(Item)) == 0;
}

/// All commands have the one texture that there is.
bool sameCommands(const ImVector<ImDrawCmd>& a, const ImVector<ImDrawCmd>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const ImDrawCmd& x, const ImDrawCmd& y) {
        return std::memcmp(&x.ClipRect, &y.ClipRect, sizeof x.ClipRect) == 0 && x.ElemCount == y.ElemCount &&
               x.IdxOffset == y.IdxOffset && x.VtxOffset == y.VtxOffset;
    });
}

bool sameList(const ImDrawList& a, const ImDrawList& b)
{
    return sameCommands(a.CmdBuffer, b.CmdBuffer) && sameItems(a.IdxBuffer, b.IdxBuffer) &&
           sameItems(a.VtxBuffer, b.VtxBuffer);
}

bool liesIn(const ImDrawList& list, const Rectangle& area)
{
    return std::all_of(list.CmdBuffer.begin(), list.CmdBuffer.end(), [&area](const ImDrawCmd& command) {
        const ImVec4& clip = command.ClipRect;
        return clip.x >= area.x && clip.y >= area.y && clip.z <= area.x + area.width &&
               clip.w <= area.y + area.height;
    });
}

GLint pixels(float length)
{
    return static_cast<GLint>(std::lround(length));
}

/// Where OpenGL draws to, and to which part; put back with this object.
class DrawState
{
public:
    DrawState() : _isCut(glIsEnabled(GL_SCISSOR_TEST))
    {
        glGetIntegerv(GL_SCISSOR_BOX, _cut);
        glGetFloatv(GL_COLOR_CLEAR_VALUE, _clear);
        glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING_EXT, &_draw);
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING_EXT, &_read);
    }
    DrawState(const DrawState&) = delete;
    DrawState& operator=(const DrawState&) = delete;

    void putBack(osg::GLExtensions& gl) const
    {
        gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER_EXT, static_cast<GLuint>(_draw));
        gl.glBindFramebuffer(GL_READ_FRAMEBUFFER_EXT, static_cast<GLuint>(_read));
        glScissor(_cut[0], _cut[1], _cut[2], _cut[3]);
        glClearColor(_clear[0], _clear[1], _clear[2], _clear[3]);
        (_isCut ? glEnable : glDisable)(GL_SCISSOR_TEST);
    }

    GLuint target() const { return static_cast<GLuint>(_draw); }

private:
    const GLboolean _isCut;
    GLint _cut[4] = {};
    GLfloat _clear[4] = {};
    GLint _draw = 0;
    GLint _read = 0;
};

} // namespace

/// Pixels of the window that are kept from frame to frame. Of the context that draws.
class GuiDrawing::Buffer
{
public:
    /// True when what it had is gone.
    bool resize(osg::GLExtensions& gl, GLint width, GLint height);
    /// Null: the context is gone, and all with it.
    void release(osg::GLExtensions* gl);

    GLuint target() const { return _target; }

private:
    GLuint _target = 0;
    GLuint _pixels = 0;
    GLint _width = 0;
    GLint _height = 0;
};

bool GuiDrawing::Buffer::resize(osg::GLExtensions& gl, GLint width, GLint height)
{
    if (_target != 0 && _width == width && _height == height) return false;
    release(&gl);
    _width = width;
    _height = height;
    gl.glGenRenderbuffers(1, &_pixels);
    gl.glBindRenderbuffer(GL_RENDERBUFFER_EXT, _pixels);
    gl.glRenderbufferStorage(GL_RENDERBUFFER_EXT, GL_RGBA8, width, height);
    gl.glBindRenderbuffer(GL_RENDERBUFFER_EXT, 0);
    gl.glGenFramebuffers(1, &_target);
    gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER_EXT, _target);
    gl.glFramebufferRenderbuffer(GL_DRAW_FRAMEBUFFER_EXT, GL_COLOR_ATTACHMENT0_EXT, GL_RENDERBUFFER_EXT,
                                 _pixels);
    return true;
}

void GuiDrawing::Buffer::release(osg::GLExtensions* gl)
{
    if (_target != 0 && gl) {
        gl->glDeleteFramebuffers(1, &_target);
        gl->glDeleteRenderbuffers(1, &_pixels);
    }
    _target = 0;
}

void GuiDrawing::Free::operator()(ImDrawList* list) const
{
    IM_DELETE(list);
}

GuiDrawing::GuiDrawing(std::shared_ptr<const GuiContext> context)
    : _context(std::move(context)), _buffer(std::make_unique<Buffer>())
{
}

GuiDrawing::~GuiDrawing()
{
    const VelThreads::Lock lock(GuiContext::mutex);
    _context->makeCurrent();
    _below.clear();
    _above.clear();
    _docked.clear();
}

void GuiDrawing::take(const std::vector<Rectangle>& docked)
{
    const ImDrawData& finished = *ImGui::GetDrawData();
    std::vector<const ImDrawList*> lists(finished.CmdLists, finished.CmdLists + finished.CmdListsCount);
    _width = finished.DisplaySize.x;
    _height = finished.DisplaySize.y;
    takeDocked(docked, lists);
    _below.clear();
    _above.clear();
    const ImDrawList* const background = ImGui::GetBackgroundDrawList();
    for (const ImDrawList* list : lists)
        (list == background ? _below : _above).emplace_back(list->CloneOutput());
}

/// Takes what is docked out of `lists`. What has not changed stays drawn.
void GuiDrawing::takeDocked(const std::vector<Rectangle>& areas, std::vector<const ImDrawList*>& lists)
{
    _docked.resize(areas.size());
    for (size_t i = 0; i < areas.size(); ++i) {
        const auto rest = std::stable_partition(
            lists.begin(), lists.end(), [&](const ImDrawList* list) { return !liesIn(*list, areas[i]); });
        Docked& docked = _docked[i];
        docked.isDrawn =
            docked.isDrawn && std::memcmp(&docked.area, &areas[i], sizeof docked.area) == 0 &&
            std::equal(docked.lists.begin(), docked.lists.end(), rest, lists.end(),
                       [](const auto& before, const ImDrawList* now) { return sameList(*before, *now); });
        if (!docked.isDrawn) {
            docked.area = areas[i];
            docked.lists.clear();
            for (auto list = rest; list != lists.end(); ++list)
                docked.lists.emplace_back((*list)->CloneOutput());
        }
        lists.erase(rest, lists.end());
    }
}

void GuiDrawing::operator()(osg::RenderInfo& renderInfo) const
{
    const VelThreads::Lock lock(GuiContext::mutex);
    if (_below.empty() && _above.empty() && _docked.empty()) return;
    _context->makeCurrent();
    if (!_hasGlObjects) _hasGlObjects = ImGui_ImplOpenGL3_Init("#version 130");
    ImGui_ImplOpenGL3_NewFrame();
    draw(_below);
    drawDocked(*renderInfo.getState());
    draw(_above);
}

void GuiDrawing::drawDocked(osg::State& state) const
{
    osg::GLExtensions& gl = *state.get<osg::GLExtensions>();
    const DrawState before;
    const bool isLost = _buffer->resize(gl, pixels(_width), pixels(_height));
    gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER_EXT, _buffer->target());
    const ImVec4& color = ImGui::GetStyle().Colors[ImGuiCol_WindowBg];
    glClearColor(color.x, color.y, color.z, 1);
    for (Docked& docked : _docked) {
        if (docked.isDrawn && !isLost) continue;
        const Rectangle& area = docked.area;
        glEnable(GL_SCISSOR_TEST);
        glScissor(pixels(area.x), pixels(_height - area.y - area.height), pixels(area.width),
                  pixels(area.height));
        glClear(GL_COLOR_BUFFER_BIT);
        draw(docked.lists);
        docked.isDrawn = true;
    }
    gl.glBindFramebuffer(GL_READ_FRAMEBUFFER_EXT, _buffer->target());
    gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER_EXT, before.target());
    glDisable(GL_SCISSOR_TEST);
    for (const Docked& docked : _docked) {
        const GLint left = pixels(docked.area.x);
        const GLint bottom = pixels(_height - docked.area.y - docked.area.height);
        const GLint right = left + pixels(docked.area.width);
        const GLint top = bottom + pixels(docked.area.height);
        gl.glBlitFramebuffer(left, bottom, right, top, left, bottom, right, top, GL_COLOR_BUFFER_BIT,
                             GL_NEAREST);
    }
    before.putBack(gl);
}

/// OSG's state stays as it is.
void GuiDrawing::draw(const Lists& lists) const
{
    if (lists.empty()) return;
    ImDrawData data;
    std::vector<ImDrawList*> all;
    const ImTextureID letters = ImGui::GetIO().Fonts->TexID;
    for (const auto& list : lists) {
        // The first frame is made before there is a texture; there is no other one.
        for (ImDrawCmd& command : list->CmdBuffer)
            command.TextureId = letters;
        all.push_back(list.get());
        data.TotalIdxCount += list->IdxBuffer.Size;
        data.TotalVtxCount += list->VtxBuffer.Size;
    }
    data.Valid = true;
    data.CmdLists = all.data();
    data.CmdListsCount = static_cast<int>(all.size());
    data.DisplaySize = ImVec2(_width, _height);
    data.FramebufferScale = ImVec2(1, 1);
    ImGui_ImplOpenGL3_RenderDrawData(&data);
}

void GuiDrawing::releaseGLObjects(osg::State* state) const
{
    const VelThreads::Lock lock(GuiContext::mutex);
    if (!_hasGlObjects) return;
    _context->makeCurrent();
    ImGui_ImplOpenGL3_Shutdown();
    _hasGlObjects = false;
    _buffer->release(state ? state->get<osg::GLExtensions>() : nullptr);
}
