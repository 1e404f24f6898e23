#pragma once

#include "viewer/display/Legend.h"
#include "viewer/window/KeyList.h"

#include <VelThreads/Mutex.h>

#include <osg/Camera>
#include <osg/Vec2d>

#include <string>
#include <vector>

struct ImGuiContext;

/// Draws the legend, lines of text and what the user draws over the window of a camera. It is a post draw
/// callback of that camera, so that pictures read by its final draw callbacks have it.
///
/// Threads: the setters on the viewer's thread, drawing on the thread that draws.
class Overlay : public osg::Camera::DrawCallback
{
public:
    void setLegend(const Legend& legend);

    /// Shown at the bottom; none hides them.
    void setLines(const std::vector<std::string>& lines);

    /// Shown at the top right; none hides them. A line that begins with "! " stands out.
    void setPanel(const std::vector<std::string>& lines);

    /// Shown in the middle, above everything else; none hides it.
    void setQuestion(const std::vector<std::string>& lines);

    /// Shown in the middle, in two columns; none hides it.
    void setHelp(const std::vector<KeyList>& lists);

    /// What the user draws: vertices in pixels as of `Outline`, to which ImGui's are alike. None hides it.
    void setOutline(const std::vector<osg::Vec2d>& vertices, bool closed);

    void operator()(osg::RenderInfo& renderInfo) const override;
    void releaseGLObjects(osg::State* state) const override;

protected:
    ~Overlay() override;

private:
    bool isEmpty() const VEL_REQUIRES(_mutex);
    void beginFrame(const osg::Vec2d& windowSize) const VEL_REQUIRES(_mutex);
    void drawLegend() const VEL_REQUIRES(_mutex);
    void drawEntries(float room) const VEL_REQUIRES(_mutex);
    void drawRamp(float room) const VEL_REQUIRES(_mutex);
    void drawOutline() const VEL_REQUIRES(_mutex);
    void drawHelp() const VEL_REQUIRES(_mutex);
    void drawText(const char* name, const std::vector<std::string>& lines, const osg::Vec2d& place,
                  float alpha) const VEL_REQUIRES(_mutex);

    mutable VelThreads::Mutex _mutex;
    Legend _legend VEL_GUARDED_BY(_mutex);
    std::vector<std::string> _lines VEL_GUARDED_BY(_mutex);
    std::vector<std::string> _panel VEL_GUARDED_BY(_mutex);
    std::vector<std::string> _question VEL_GUARDED_BY(_mutex);
    std::vector<KeyList> _help VEL_GUARDED_BY(_mutex);
    std::vector<osg::Vec2d> _outline VEL_GUARDED_BY(_mutex);
    bool _outlineClosed VEL_GUARDED_BY(_mutex) = false;
    mutable ImGuiContext*
        _context VEL_GUARDED_BY(_mutex) = nullptr; ///< made by the first frame, on the drawing thread
    mutable bool _hasGlObjects VEL_GUARDED_BY(_mutex) = false;
    mutable float
        _unit VEL_GUARDED_BY(_mutex) = 1; ///< pixels of one text pixel: large pictures get large letters
};
