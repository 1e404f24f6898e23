#pragma once

#include "viewer/gui/GuiContext.h"

#include <osg/Camera>

#include <memory>
#include <vector>

struct ImDrawData;
struct ImDrawList;

/// Draws what Dear ImGui has made, over the whole window, after a camera. What is docked is drawn into a
/// buffer of its own when it changes, and copied from there: most frames come of a camera that moves.
///
/// Threads: `take` on the one that calls Dear ImGui, drawing and releasing on the one that draws.
class GuiDrawing : public osg::Camera::DrawCallback
{
public:
    explicit GuiDrawing(std::shared_ptr<const GuiContext> context);

    /// Of the window, pixels from its top left.
    struct Rectangle
    {
        float x = 0;
        float y = 0;
        float width = 0;
        float height = 0;
    };

    /// Draws from now on what is finished in the context, which is the current one. The rectangles `docked`
    /// have the colour of windows below what lies wholly in them; the rest is drawn over that, but for what
    /// Dear ImGui has in its background, which is below.
    void take(const std::vector<Rectangle>& docked) VEL_REQUIRES(GuiContext::mutex);

    void operator()(osg::RenderInfo& renderInfo) const override;
    void releaseGLObjects(osg::State* state) const override;

protected:
    ~GuiDrawing() override;

private:
    struct Free
    {
        void operator()(ImDrawList* list) const;
    };
    using Lists = std::vector<std::unique_ptr<ImDrawList, Free>>;

    struct Docked
    {
        Rectangle area;
        Lists lists;
        bool isDrawn = false; ///< into the buffer, as it is now
    };

    class Buffer;

    void takeDocked(const std::vector<Rectangle>& areas, std::vector<const ImDrawList*>& lists)
        VEL_REQUIRES(GuiContext::mutex);
    void drawDocked(osg::State& state) const VEL_REQUIRES(GuiContext::mutex);
    void draw(const Lists& lists) const VEL_REQUIRES(GuiContext::mutex);

    const std::shared_ptr<const GuiContext> _context;
    Lists _below VEL_GUARDED_BY(GuiContext::mutex); ///< what is docked
    Lists _above VEL_GUARDED_BY(GuiContext::mutex);
    mutable std::vector<Docked> _docked VEL_GUARDED_BY(GuiContext::mutex);
    float _width VEL_GUARDED_BY(GuiContext::mutex) = 0; ///< of the window, pixels
    float _height VEL_GUARDED_BY(GuiContext::mutex) = 0;
    mutable bool _hasGlObjects VEL_GUARDED_BY(GuiContext::mutex) = false;
    const std::unique_ptr<Buffer> _buffer VEL_PT_GUARDED_BY(GuiContext::mutex);
};
