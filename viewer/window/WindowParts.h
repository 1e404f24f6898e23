#pragma once

#include "viewer/edit/ClassCounts.h"
#include "viewer/edit/SceneEditing.h"
#include "viewer/gui/Gui.h"
#include "viewer/panel/ClassesSection.h"
#include "viewer/panel/HistorySection.h"
#include "viewer/panel/LookSection.h"
#include "viewer/panel/MeasureSection.h"
#include "viewer/panel/Panel.h"
#include "viewer/panel/SectionSection.h"
#include "viewer/panel/StatusLine.h"
#include "viewer/panel/SurfaceSection.h"
#include "viewer/panel/ToolsSection.h"
#include "viewer/panel/ViewSection.h"
#include "viewer/window/ClipBoxHandles.h"
#include "viewer/window/EditKeys.h"
#include "viewer/window/HelpKey.h"
#include "viewer/window/MeasureKeys.h"
#include "viewer/window/Overlay.h"
#include "viewer/window/SectionTool.h"
#include "viewer/window/WindowFiles.h"

#include <VelOsgDBBrx/ContextServices.h>
#include <VelOsgDBBrx/MoveLevel.h>

#include <optional>

/// The pictures have the area that is left beside the panels. True when they had another one.
bool placeViews(const Gui& gui, Views& views);

/// The parts of a window, connected: pictures, keys, files, the panel with its sections. They see events and
/// draw in the order in which they are made.
///
/// Threads: the viewer's.
class WindowParts
{
public:
    /// All outlive it. `context` is that of the viewer's window.
    WindowParts(osgViewer::Viewer& viewer, Scene& scene, osg::GraphicsContext& context,
                const Options& options, Settings& settings);
    WindowParts(const WindowParts&) = delete;
    WindowParts& operator=(const WindowParts&) = delete;

    /// What the user leaves the parts like.
    void keep();

    /// Draws the picture before the first one with a surface: that takes a second or more, as programs are
    /// made for it, and this one, without the surface, says so. In the place of the rendering traversals.
    void announceSurface();

    osgViewer::Viewer& viewer;
    Scene& scene;
    osg::ref_ptr<Gui> gui;
    std::optional<Views> views;
    osg::ref_ptr<StatusLine> status;
    std::optional<SceneEditing> editing;
    osg::ref_ptr<MeasureKeys> measureKeys;
    osg::ref_ptr<EditKeys> editKeys;
    osg::ref_ptr<WindowFiles> files;
    std::optional<VelOsgDBBrx::ContextServices> services;
    std::optional<VelOsgDBBrx::MoveLevel> moveLevel;

private:
    float scale();
    void makePictures();
    void makeEditing();
    void makeFiles();
    void fillPanel();
    void tellOfTheStart();

    const Options& _options;
    Settings& _settings;
    const osg::ref_ptr<osg::GraphicsContext> _context;
    const osg::ref_ptr<Overlay> _overlay = new Overlay;
    osg::ref_ptr<SectionTool> _sectionTool;
    std::optional<SavedViews> _savedViews;
    osg::ref_ptr<Panel> _panel;
    ClassChoice _classes;
    std::optional<Measuring> _measuring;
    osg::ref_ptr<HelpKey> _help;
    osg::ref_ptr<ClipBoxHandles> _clipBox;
    std::optional<Stage> _stage; ///< of the panel, which asks before it acts
    std::optional<ClassCounts> _counts;
    std::optional<ClassesSection> _classesSection;
    std::optional<HistorySection> _historySection;
    std::optional<ToolsSection> _toolsSection;
    std::optional<ViewSection> _viewSection;
    std::optional<SectionSection> _sectionSection;
    std::optional<LookSection> _lookSection;
    std::optional<SurfaceSection> _surfaceSection;
    std::optional<MeasureSection> _measureSection;
};
