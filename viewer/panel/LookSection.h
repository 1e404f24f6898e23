#pragma once

#include "viewer/operation/Operations.h"

/// How the points look: colours, size, light.
///
/// Threads: the viewer's.
class LookSection
{
public:
    explicit LookSection(const Stage& stage) : _stage(stage) {}

    void draw();

private:
    Stage _stage;
};
