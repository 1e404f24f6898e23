#pragma once

#include "viewer/Legend.h"

#include <osg/Camera>

#include <mutex>
#include <string>
#include <vector>

struct ImGuiContext;

/// Draws the legend and lines of text over the picture of a camera. It is a final draw callback of that
/// camera; whoever reads pictures of it is added after it.
///
/// Threads: the setters on the viewer's thread, drawing on the thread that draws.
class Overlay : public osg::Camera::DrawCallback
{
public:
    void setLegend(const Legend& legend);

    /// Shown at the bottom; none hides them.
    void setLines(const std::vector<std::string>& lines);

    void operator()(osg::RenderInfo& renderInfo) const override;
    void releaseGLObjects(osg::State* state) const override;

protected:
    ~Overlay() override;

private:
    void beginFrame(const osg::Viewport& viewport) const;
    void drawLegend(const osg::Viewport& viewport) const;
    void drawEntries(float room) const;
    void drawRamp(float room) const;
    void drawLines(const osg::Viewport& viewport) const;

    mutable std::mutex _mutex; ///< guards the members below
    Legend _legend;
    std::vector<std::string> _lines;
    mutable ImGuiContext* _context = nullptr; ///< made by the first frame, on the drawing thread
    mutable bool _hasGlObjects = false;
    mutable float _unit = 1; ///< pixels of one text pixel: large pictures get large letters
};
