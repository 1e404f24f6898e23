#pragma once

#include "viewer/edit/ClassChoice.h"
#include "viewer/edit/ClassCounts.h"
#include "viewer/gui/Gui.h"
#include "viewer/operation/Operation.h"

#include <array>
#include <functional>
#include <string>

/// The classes: what they are called, how many points they have, which are shown, which may change, and what
/// points become.
///
/// Threads: the viewer's.
class ClassesSection
{
public:
    /// `gui`, `counts`, and what `stage` and `choice` name, outlive it. `file` tells where the names and
    /// colours are from; empty for the standard's.
    ClassesSection(const Stage& stage, ClassChoice& choice, ClassCounts& counts, Gui& gui,
                   std::function<std::string()> file);

    void draw();

private:
    void followEdits();
    void drawRows();
    void drawRow(int code);
    void drawColor(int code);
    void drawEye(int code);
    void drawMayChange(int code);
    void drawShown();
    void drawAdd();
    void drawSave();
    void show(const ClassSet& classes);
    ClassSet listed() const;

    const Stage _stage;
    ClassChoice& _choice;
    Gui& _gui;
    const std::function<std::string()> _file;
    ClassCounts& _counts;
    std::optional<uint64_t> _followed; ///< the revision of edits whose classes the legend has
    ClassSet _added;                   ///< by hand, without a point so far
    int _wanted = 64;                  ///< to be added: the first that users may define
    std::array<char, 65> _name{};
    bool _isChanged = false; ///< names or colours are not in the file
    std::string _said;       ///< what came of writing it
};
