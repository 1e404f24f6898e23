#pragma once

#include "viewer/display/ChangedColors.h"
#include "viewer/display/ColorMode.h"
#include "viewer/display/NormalLight.h"
#include "viewer/display/SurfaceLook.h"
#include "viewer/scene/CameraView.h"

#include <VelBrx/Status.h>

#include <osg/ArgumentParser>
#include <osg/Vec4f>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

constexpr int kLargestPointSize = 64; ///< pixels

constexpr double kLargestUiScale = 8;

constexpr int kLargestPicture = 32768;  ///< pixels on a side
constexpr double kLongestTimeout = 1e6; ///< seconds

/// How large points are: a fixed size, or as large as the space between them, at least that size.
struct PointSizing
{
    bool bySpacing = false;
    double factor = 2; ///< size over space
};

constexpr double kLargestSizeFactor = 8;

constexpr uint64_t kUsualBudget = 100000000; ///< points, the library's
constexpr double kLeastMemory = 1e6;         ///< bytes
constexpr double kLargestMemory = 1e15;

struct PictureSize
{
    int width = 1280;
    int height = 720;
};

/// How much eye-dome lighting darkens.
struct EyeDomeShading
{
    double strength = 1.5;
    double radius = 2; ///< of the neighbourhood that a pixel is compared with, pixels
};

constexpr double kStrongestEdl = 10;
constexpr double kWidestEdl = 32; ///< pixels

/// What to do instead of opening a window: draw a picture, or run a script.
struct HeadlessRequest
{
    std::string picture; ///< file to draw; empty with a script
    std::string script;  ///< file to run
    PictureSize size;
    bool sized = false; ///< the size was asked for
    double timeoutSeconds = 300;
};

/// The command line of the viewer, checked.
struct Options
{
    std::vector<std::string> inputs; ///< stores, those of folders too, LAS and LAZ files
    ColorMode mode = ColorMode::AUTOMATIC;
    ChangedBy changedBy = ChangedBy::ENTRY;            ///< of ColorMode::CHANGED
    osg::Vec4f color = Coloring::defaultSingleColor(); ///< of ColorMode::SINGLE
    int pointSize = 0;                                 ///< pixels; 0: the library's default
    PointSizing pointSizing;
    std::optional<uint64_t> budget; ///< largest number of points drawn
    std::optional<uint64_t> memory; ///< largest memory of the points drawn, bytes
    bool edl = false;               ///< eye-dome lighting
    EyeDomeShading shading;
    NormalLight light;
    SurfaceLook surface = {};
    bool legend = true;
    bool panel = true;
    std::optional<double> uiScale; ///< of letters and widgets, to be kept; 0: by the screen
    std::string normals;           ///< companion file of the only store
    std::string store;             ///< where the store of the only LAS or LAZ file is
    CameraView view;
    std::optional<HeadlessRequest> headless;
    bool force = false;      ///< replace files that exist
    std::string classesFile; ///< names and colours of the classes; empty: as `chooseClasses` finds them; then
                             ///< the one found
    std::string author;      ///< who edits; empty: the login name
    bool editAnyway = false; ///< edit stores that another program edits too

    std::vector<std::string> warnings; ///< of opening the inputs, for people who edit
};

/// Takes the viewer's own options out of `arguments`; what the window system's options leave is then for
/// `readInputs`.
VelBrx::Status readOptions(osg::ArgumentParser& arguments, Options& options);

/// Takes the files to show, and those of folders, out of `arguments`. What is left then is an unknown option.
VelBrx::Status readInputs(osg::ArgumentParser& arguments, Options& options);

/// Text of `--help` and of the help screen.
void describeOptions(osg::ApplicationUsage& usage);
