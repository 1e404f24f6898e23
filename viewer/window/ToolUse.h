#pragma once

#include "viewer/edit/Sight.h"
#include "viewer/edit/WindowView.h"
#include "viewer/scene/Scene.h"
#include "viewer/tool/ToolTable.h"
#include "viewer/window/Views.h"

#include <VelOsgDBBrx/PointPicker.h>

#include <osgGA/GUIEventAdapter>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The tool that the user has in hand, and the picture that it is used on: the one in which it was begun. If
/// that moves, what is drawn is dropped.
///
/// Belongs to the viewer's thread.
class ToolUse
{
public:
    /// All of it outlives the frames.
    ToolUse(Scene& scene, const Views& views);

    /// Takes a tool, at a place of the window.
    void take(const ToolKind& kind, const osgGA::GUIEventAdapter& event);

    /// Takes the tool that was used last. False where there was none.
    bool takeAgain(const osgGA::GUIEventAdapter& event);

    void putDown() { _tool.reset(); }

    /// True where the event is the tool's, so that nobody else must see it.
    bool handleMouse(const osgGA::GUIEventAdapter& event);

    /// Backspace, Enter, Escape and Insert, where there is a tool for them.
    bool handleKey(int key);

    /// Takes the answer of a pick. To be called each frame.
    void update();

    /// Drops what is drawn where its picture has moved. True where it did.
    bool dropFromOtherView();

    /// Null where there is none.
    Tool* tool() const { return _tool.get(); }
    const ToolKind* kind() const { return _tool ? _kind : nullptr; }

    /// The tool that `takeAgain` takes; null where there is none.
    const ToolKind* last() const { return _kind; }
    void setLast(const ToolKind* kind) { _kind = kind; }

    BrushTool* brush() const { return dynamic_cast<BrushTool*>(_tool.get()); }
    GrowTool* grow() const { return dynamic_cast<GrowTool*>(_tool.get()); }

    /// What grows from the point that `grow` points at.
    VelOsgDBBrx::GrownPlace grown() const;

    const Sight& sight() const { return _sight; }
    ToolSettings& settings() { return _settings; }
    const ToolSettings& settings() const { return _settings; }

    /// Why the last event did nothing, once; empty where it did.
    std::string takeMessage() { return std::exchange(_message, {}); }

private:
    void press(const osgGA::GUIEventAdapter& event, const osg::Vec2d& mouse);
    bool isForCamera(const osgGA::GUIEventAdapter& event) const;
    void close();

    Scene& _scene;
    const Views& _views;
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> _picker;
    ToolSettings _settings;
    const ToolKind* _kind = nullptr; ///< of the tool, or of the last one
    std::unique_ptr<Tool> _tool;
    Sight _sight;                    ///< the picture that the tool is used on
    std::optional<WindowView> _view; ///< that picture, when it was begun
    std::string _message;
};

/// In pixels as of `Outline`; events count y up.
osg::Vec2d placeOf(const osgGA::GUIEventAdapter& event);
