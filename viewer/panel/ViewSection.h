#pragma once

#include "viewer/operation/Operations.h"

#include <string>

/// Where the camera stands: views by name, projection, how it turns, saved views, and the clip box.
///
/// Threads: the viewer's.
class ViewSection
{
public:
    explicit ViewSection(const Stage& stage) : _stage(stage) {}

    void draw();

private:
    void drawSides();
    void drawTurning();
    void drawSaved();
    void drawClipBox();
    void act(const char* operation, const std::string& parameter, Value value);

    Stage _stage;
    std::string _name; ///< typed for a view
    std::optional<size_t> _renamed;
    bool _types = false; ///< the field for it is to have the keyboard
};
