#pragma once

#include "viewer/display/Legend.h"
#include "viewer/gui/Gui.h"
#include "viewer/tool/Tool.h"
#include "viewer/window/KeyList.h"

#include <osg/Referenced>
#include <osg/Vec2d>

#include <string>
#include <vector>

/// The legend, lines of text and what the user draws, over the scene.
///
/// Threads: the viewer's.
class Overlay : public osg::Referenced
{
public:
    void setLegend(const Legend& legend) { _legend = legend; }

    /// \name A legend that a click on its title folds to that line
    /// In a window; pictures have the legend as it is.
    /// @{
    void setFoldable(bool isFolded)
    {
        _isFoldable = true;
        _isFolded = isFolded;
    }
    bool isFolded() const { return _isFolded; }
    /// @}

    /// Shown at the bottom; none hides them.
    void setLines(const std::vector<std::string>& lines) { _lines = lines; }

    /// Shown at the top right; none hides them. A line that begins with "! " stands out.
    void setPanel(const std::vector<std::string>& lines) { _panel = lines; }

    /// Shown in the middle, above everything else; none hides it.
    void setQuestion(const std::vector<std::string>& lines) { _question = lines; }

    /// Shown in the middle while no question is; empty hides it.
    void setNotice(const std::string& line) { _notice = line; }

    /// Shows the keys in the middle, in two columns, with a field that filters them; `searches`: what is
    /// typed goes there at once.
    void showHelp(const std::vector<KeyList>& lists, bool searches);
    void hideHelp() { _help.clear(); }
    bool showsHelp() const { return !_help.empty(); }

    /// What the user draws; pixels of `Gui` are as those of `Outline`. Without paths it is hidden.
    void setDrawing(const ToolPreview& drawing) { _drawing = drawing; }

    /// A part of `gui`, which comes after those that take something of the window's area.
    void draw(const Gui& gui);

protected:
    ~Overlay() override = default;

private:
    void drawLegend(const Gui& gui);
    void drawTitle();
    void drawEntries(float room) const;
    void drawRamp(float room, float unit) const;
    static void drawPath(const ToolPreview::Path& path, float unit);
    void drawHelp(const Gui::Area& area);
    void drawSearch();
    void drawText(const char* name, const std::vector<std::string>& lines, const Gui::Area& area,
                  const osg::Vec2d& place, float alpha) const;

    Legend _legend;
    bool _isFoldable = false;
    bool _isFolded = false;
    std::vector<std::string> _lines;
    std::vector<std::string> _panel;
    std::vector<std::string> _question;
    std::string _notice;
    std::vector<KeyList> _help;
    std::string _searched;  ///< what the list of keys is filtered by
    bool _searches = false; ///< the field for it is to have the keyboard
    ToolPreview _drawing;
};
