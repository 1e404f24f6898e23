#pragma once

#include "viewer/gui/GuiContext.h"

#include <osg/Camera>

#include <memory>
#include <vector>

struct ImDrawList;

/// Draws what Dear ImGui has made, over the whole window, after a camera.
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

    /// Draws from now on what is finished in the context, which is the current one, and fills `plain` with
    /// the colour of windows before.
    void take(const std::vector<Rectangle>& plain) VEL_REQUIRES(GuiContext::mutex);

    void operator()(osg::RenderInfo& renderInfo) const override;
    void releaseGLObjects(osg::State* state) const override;

protected:
    ~GuiDrawing() override;

private:
    void fill() const VEL_REQUIRES(GuiContext::mutex);

    struct Free
    {
        void operator()(ImDrawList* list) const;
    };

    const std::shared_ptr<const GuiContext> _context;
    std::vector<std::unique_ptr<ImDrawList, Free>> _lists VEL_GUARDED_BY(GuiContext::mutex);
    std::vector<Rectangle> _plain VEL_GUARDED_BY(GuiContext::mutex);
    float _width VEL_GUARDED_BY(GuiContext::mutex) = 0; ///< of the window, pixels
    float _height VEL_GUARDED_BY(GuiContext::mutex) = 0;
    mutable bool _hasGlObjects VEL_GUARDED_BY(GuiContext::mutex) = false;
};
