#pragma once

#include "viewer/edit/EditWork.h"
#include "viewer/edit/Outline.h"
#include "viewer/edit/WindowView.h"
#include "viewer/scene/Scene.h"

#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/LineSearchCmd.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>

#include <osg/Vec2d>
#include <osgViewer/Viewer>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

constexpr double kWidestLine = 1000; ///< pixels

/// What an operation of `EditSession` did.
struct EditOutcome
{
    std::string operation; ///< for people, such as "hide inside" or "undo classify"
    bool ok = true;        ///< false: refused, failed, or done in part; `message` says why and what to do

    /// Points changed in the stores; of a select, a line and a dry run the points found, of a save the points
    /// written.
    uint64_t points = 0;
    bool countsPoints = true; ///< false: what was done is a matter of the picture alone

    /// Of a reclassification: the visible points under the polygon by class, before and after.
    std::optional<VelOsgDBBrx::CategoryCounts> classes;

    std::string undone; ///< of an undo: the operation that was taken back; empty when there was none

    std::string message; ///< one line; empty where there is nothing to add

    /// Refused, at least in part, because another program edits a store: `editAnyway` is the user's to
    /// choose.
    bool isBusyElsewhere = false;
};

/// A change of classes: which classes may change, and what they become.
struct Classification
{
    int toClass = 1;              ///< 0 to 255
    std::vector<int> fromClasses; ///< 0 to 254; empty: all, class 255 included
    bool dryRun = false;          ///< only count
};

/// What an operator does to the points of a scene: hide and bring back, select and segment, follow a line,
/// classify, undo, save.
///
/// One operation runs at a time, on the library's workers; the viewer goes on drawing. A call that starts one
/// returns false, and does nothing, while another is running. Its outcome is polled for or waited for:
///
///     session.hide(polygon, VelOsgDBBrx::Type::INSIDE);
///     if (std::optional<EditOutcome> outcome = session.poll()) ... // each frame
///     EditOutcome outcome = session.wait();                       // or this
///
/// The camera, the window, the clip planes and the classes on show are those of the moment of the call.
///
/// Which points an operation reaches: all of the stores, loaded or not. Hiding and bringing back heed the
/// scene's clip planes. A reclassification reaches what is visible: not hidden, inside the clip planes, of a
/// class that is shown. A segment hides points on the screen alone: the points that it hides are edited too.
///
/// Undo takes back the newest edit, of whatever kind. Edits that changed nothing are not counted.
///
/// The session is the only user of the process-wide `CullCmdManager` and `CategoryCalcTool` while it lives.
/// Belongs to the viewer's thread; call it between frames or in the event and update traversals.
class EditSession
{
public:
    /// Makes the clouds known for editing. `scene`, loaded, and `viewer`, with its window, outlive the
    /// session.
    EditSession(Scene& scene, osgViewer::Viewer& viewer);

    /// Waits for a save that is running. Unsaved classes are lost: ask `unsavedPoints` before.
    ~EditSession();

    EditSession(const EditSession&) = delete;
    EditSession& operator=(const EditSession&) = delete;

    /// \name Operations
    /// Each returns false while another is running. An outline in world coordinates that is more than some
    /// windows large, or reaches behind the camera, is refused.
    /// @{
    bool hide(const Outline& polygon, VelOsgDBBrx::Type side);

    /// Brings the hidden points under the polygon back, whoever hid them. Undo does not hide them again.
    bool show(const Outline& polygon);

    /// Adds the points under the polygon to the selection, or takes them out of it. A selection is a matter
    /// of the picture: no store changes. The outcome counts the visible points under the polygon.
    bool select(const Outline& polygon, bool add);

    /// Shows nothing but the selected points (`selectedOnly`), or everything but them; in the picture alone.
    /// Refused where nothing is selected.
    bool segment(bool selectedOnly);

    /// Finds the visible points under a line of `width` pixels: not hidden, inside the clip
    /// planes, of a class that is shown. Its ends are cut off square, its bends are round. Makes the strip of
    /// ground that it covers, seen from above, stand out in the picture; the strip is as exact as floats of
    /// world coordinates. The strip replaces that of the line before; undo takes it away.
    bool line(const Outline& line, double width);

    bool classify(const Outline& polygon, const Classification& change);

    bool undo();

    /// Takes every edit of this session back, those that were saved too; such a store has unsaved points
    /// then.
    bool undoAll();

    /// Brings every hidden point of the stores back, whoever hid it and when, and drops selection, segments
    /// and the line. Cannot be undone. Classes stay as they are: this is about what is seen.
    bool reset();

    /// Writes the classes into the stores. Undo still goes back past it.
    bool save();
    /// @}

    /// The user's choice: from now on stores are edited that another program edits, too, and without their
    /// journals, which that program has.
    void editAnyway();

    bool isBusy() const { return _running.has_value(); }

    /// Whether `poll` would return something.
    bool hasOutcome() const { return _running && _running->work.isFinished(); }

    /// Once for each operation, when it has ended.
    std::optional<EditOutcome> poll();

    /// Waits for the running operation to end; call it only while the session is busy.
    EditOutcome wait();

    /// Number of points whose class is not saved, by the path of their store; without stores that have none.
    std::map<std::string, uint64_t> unsavedPoints() const;

private:
    /// An edit that undo can take back.
    struct Edit
    {
        enum Kind
        {
            HIDDEN,
            SHOWN,
            SELECTION,
            LINE,
            CLASSES
        };
        Kind kind;
        std::string operation;
        osg::ref_ptr<VelOsgDBBrx::BaseCmd> cmd = nullptr; ///< of HIDDEN
    };

    /// An outline in pixels of a window.
    struct Drawing
    {
        WindowView view;
        std::vector<osg::Vec2d> vertices;
    };

    struct Running
    {
        EditOutcome outcome;
        EditWork work;
        std::function<void(Running&)> conclude; ///< completes the outcome; called when the work has ended
    };

    Running* begin(const std::string& operation);
    Running* beginOnScreen(const std::string& operation, const Outline& outline, size_t fewest,
                           double margin = 1);
    std::string drawOnWindow(const Outline& outline, size_t fewest, double margin);
    void pushCull(Running& running, VelOsgDBBrx::PolygonPointCmd* cmd, Edit::Kind kind);
    void pushClassEdit(EditWork& work, const Classification& change) const;
    void concludeCommands(Running& running) const;
    void concludeCull(Running& running, const Edit& edit);
    void concludeClasses(Running& running, bool dryRun);
    void concludeLine(Running& running, VelOsgDBBrx::LineSearchCmd& search, double width);
    void noteSegment(EditOutcome& outcome) const;
    void takeBack(Running& running, std::vector<Edit> edits);
    void beginToTakeBack(Running& running, const Edit& edit);
    void dropSelection();
    std::string readOnlyStores(const std::function<bool(const std::string&)>& isMeant) const;
    std::vector<osg::observer_ptr<OctreeInfo>> octrees() const;

    Scene& _scene;
    osgViewer::Viewer& _viewer;
    std::vector<std::string> _uids;                           ///< of the clouds, in their order
    std::vector<VelOsgDBBrx::SelectSegmentStack> _selections; ///< of the clouds, in their order
    Drawing _onWindow;                                        ///< the outline of the operation that begins
    Drawing _whole; ///< the same, on a window that holds as much of it as is meant
    std::optional<Running> _running;
    /// The order of all edits, the newest last. How each is taken back: hiding by its command, classes by the
    /// `CategoryCalcTool`, selections by their stacks, which each take back the newest of what they did.
    std::vector<Edit> _undoOrder;
};
