#pragma once

#include "viewer/operation/Operations.h"

/// The section: drawing one, stepping along, width, turning, exaggeration.
///
/// Threads: the viewer's.
class SectionSection
{
public:
    explicit SectionSection(const Stage& stage) : _stage(stage) {}

    void draw();

private:
    Stage _stage;
};
