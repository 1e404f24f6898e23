#pragma once

#include "viewer/operation/Operations.h"

/// The surface of the ground: on or off, its contour lines, its light, and what is drawn over it.
///
/// Threads: the viewer's.
class SurfaceSection
{
public:
    explicit SurfaceSection(const Stage& stage) : _stage(stage) {}

    void draw();

private:
    void drawClasses(Request request);

    const Stage _stage;
};
