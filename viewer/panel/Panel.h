#pragma once

#include "viewer/gui/Gui.h"
#include "viewer/settings/Settings.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

/// The panel at the left of the window: sections one below the other, which fold, scroll, and are made wider
/// with the mouse. Tab hides it and shows it again.
///
/// Threads: the viewer's.
class Panel : public osgGA::GUIEventHandler
{
public:
    /// A part of `gui`, which must outlive it.
    Panel(Gui& gui, bool isShown);

    /// Adds a section below the others. `draw` calls Dear ImGui, as the parts of `Gui` do; what it wants done
    /// goes to `Stage::act`, or `Gui::later`. `key`, where it is not 0, is
    /// for `open`.
    void add(const std::string& title, std::function<void()> draw, bool open = false, int key = 0);

    /// \name What is remembered from one window to the next: shown or not, width, which sections are unfolded
    /// @{
    void recall(const Settings& settings);
    void keep(Settings& settings) const;
    /// @}

    bool isShown() const { return _isShown; }
    void show(bool shown) { _isShown = shown; }

    /// Shows the panel with this section unfolded.
    void open(const std::string& title);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    using osgGA::GUIEventHandler::handle;

private:
    struct Section
    {
        std::string title;
        std::function<void()> draw;
        bool open = false;  ///< now, and to begin with
        bool opens = false; ///< is to be unfolded in the next frame
        int key = 0;
    };

    void draw();
    void drawSections();
    void dragEdge(float height);

    Gui& _gui;
    std::vector<Section> _sections;
    bool _isShown;
    float _width;                          ///< pixels of plain text
    std::map<std::string, bool> _recalled; ///< which sections were unfolded
};
