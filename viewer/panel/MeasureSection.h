#pragma once

#include "viewer/operation/Operations.h"

#include <array>
#include <filesystem>
#include <optional>

/// What is measured: the tools, the list with its copies and files, and all that is known of the point that
/// was clicked last.
///
/// Threads: the viewer's.
class MeasureSection
{
public:
    explicit MeasureSection(const Stage& stage) : _stage(stage) {}

    void draw();

private:
    void drawTools();
    void drawHint() const;
    void drawList();
    void drawFile();
    void drawPoint() const;

    Stage _stage;
    std::array<char, 4096> _file{"measurements.csv"};
    bool _asksToReplace = false;
};
