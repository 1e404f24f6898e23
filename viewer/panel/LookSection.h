#pragma once

#include "viewer/gui/Gui.h"
#include "viewer/operation/Operations.h"
#include "viewer/scene/Histogram.h"

#include <memory>
#include <optional>

/// How the points look: colours and what they span, size, light, background, and how many are drawn.
///
/// Threads: the viewer's.
class LookSection
{
public:
    /// `gui` must outlive it.
    LookSection(const Stage& stage, Gui& gui) : _stage(stage), _gui(gui) {}

    void draw();

private:
    enum class End
    {
        LOW,
        HIGH
    };

    void drawMode();
    void drawGradient(ColorMode mode);
    void drawBars(ColorMode mode, const ColorSpan& shown);
    void dragEnds(ColorMode mode, const ColorSpan& plot, float left, float width);
    void drawLight();
    void drawBackground();
    void drawPoints();
    void drawLimits();
    void drawMemory();
    void setSpan(const ColorSpan& span);

    const Stage _stage;
    Gui& _gui;
    std::unique_ptr<Histogram> _histogram;
    ColorMode _mode = ColorMode::AUTOMATIC; ///< of the histogram
    unsigned _clouds = 0;                   ///< revision, of the histogram
    std::optional<End> _dragged;
};
