#pragma once

#include "viewer/display/ColorMode.h"
#include "viewer/edit/Outline.h"
#include "viewer/scene/CameraView.h"
#include "viewer/scene/Options.h"

#include <VelBrx/Status.h>
#include <osg/Vec4d>

#include <bitset>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// The operations of a script, their values checked. docs/scripting.md describes each.
namespace script {

struct Window
{
    PictureSize size;
};

struct Camera
{
    CameraView view;
    bool orthographic = false;
    double height = 0; ///< of an orthographic picture, world units; 0: all that there is
};

struct Mode
{
    ColorMode mode = ColorMode::AUTOMATIC;
};

struct EyeDomeLighting
{
    bool on = false;
    std::optional<double> strength;
    std::optional<double> radius; ///< pixels
};

struct Light
{
    NormalLight light;
};

struct PointSize
{
    int pixels = 0;
};

struct ShowClasses
{
    std::bitset<256> classes;
};

struct Clip
{
    std::vector<osg::Vec4d> planes; ///< as of Scene::setClipPlanes
};

struct Cull
{
    Outline polygon;
    bool inside = true;
};

struct Uncull
{
    Outline polygon;
};

struct Select
{
    Outline polygon;
};

struct Deselect
{
    Outline polygon;
};

struct Segment
{
    bool hideSelected = false; ///< or everything else
};

struct Line
{
    Outline line;
    double width = 5; ///< pixels
};

struct Classify
{
    Outline polygon;
    std::vector<int> from; ///< classes that may change; empty: all
    int to = 0;
    bool dryRun = false;
};

struct Undo
{
};

struct UndoAll
{
};

struct Reset
{
};

struct Save
{
};

struct Settle
{
};

struct Render
{
    std::string file;
};

struct Report
{
};

using Operation = std::variant<Window, Camera, Mode, EyeDomeLighting, Light, PointSize, ShowClasses, Clip,
                               Cull, Uncull, Select, Deselect, Segment, Line, Classify, Undo, UndoAll, Reset,
                               Save, Settle, Render, Report>;

struct Step
{
    std::string name; ///< of the operation, as the script has it
    Operation operation;
};

struct Script
{
    std::string name; ///< of the file, for messages
    std::vector<Step> steps;
};

/// What "op" can be.
std::vector<std::string> operationNames();

/// "operation 3 (cull)": how messages name a step; `index` counts from 0.
std::string nameOfStep(const Script& script, size_t index);

/// Reads and checks the script of the headless request of `options`, a file or "-" for standard input, and
/// takes its window's size into the request. Nothing has been done when it fails.
VelBrx::Status read(Options& options, Script& script);

} // namespace script
