#pragma once

#include "viewer/edit/Outline.h"
#include "viewer/edit/PictureMarks.h"
#include "viewer/edit/Sight.h"
#include "viewer/edit/WindowView.h"
#include "viewer/scene/Scene.h"

#include <VelOsgDBBrx/EditSession.h>
#include <VelOsgDBBrx/LineSearchCmd.h>
#include <VelOsgDBBrx/PointSelection.h>

#include <osg/Vec2d>
#include <osgViewer/Viewer>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

constexpr double kWidestLine = 1000; ///< pixels

/// The points that are selected in the picture.
struct SelectedPoints
{
};

/// Where the points of an edit are: under an outline as it is seen now, where they are selected, or where a
/// selection says that needs no picture.
using EditPlace = std::variant<Outline, SelectedPoints, VelOsgDBBrx::PointSelection>;

/// What an operator does to the points of a scene: the library's `EditSession` for what the viewer has, which
/// are outlines on its window, selections in its picture, clip planes and shown classes.
///
/// One operation runs at a time; the viewer goes on drawing. A call that starts one returns false, and does
/// nothing, while another is running. Its outcome is polled for or waited for:
///
///     editing.hide(polygon);
///     if (std::optional<VelOsgDBBrx::EditOutcome> outcome = editing.poll()) ... // each frame
///     VelOsgDBBrx::EditOutcome outcome = editing.wait();                       // or this
///
/// An edit reaches the points of all stores, loaded or not, that the picture would show: not hidden, inside
/// the clip planes, of a class that is shown, and not left out by a segment; with `Scene::editsUndrawn` the
/// others too. A `PointSelection` says that itself. What would reach stores that wait in the scene is
/// refused: no edit leaves points out without a word.
///
/// Selections, segments and lines are steps of their own in the order of undo; they end with the program.
///
/// It is the only user of the process-wide `CullCmdManager` while it lives. Belongs to
/// the viewer's thread; call it between frames or in the event and update traversals.
class SceneEditing
{
public:
    /// Switches the stores' journals on. `scene`, loaded, and `viewer`, with its window, outlive it.
    /// `author`: empty for the login name.
    SceneEditing(Scene& scene, osgViewer::Viewer& viewer, const std::string& author = "");

    /// Waits for the running operation.
    ~SceneEditing();

    SceneEditing(const SceneEditing&) = delete;
    SceneEditing& operator=(const SceneEditing&) = delete;

    /// \name Clouds that come and go
    /// Undo and redo of the others go on.
    /// @{

    /// Shows stores and switches their journals on; `notes` is about them afterwards. False, and nothing
    /// happens, while an operation is running.
    bool addClouds(std::vector<OpenedStore> stores);

    /// Takes a cloud out of the scene and closes its journal, which keeps what is not saved. False, and
    /// nothing happens, while an operation is running or where there is no such cloud.
    bool removeCloud(uint64_t id);

    /// A cloud that is not shown is not edited either, but that undo and redo reach it.
    void setShown(uint64_t id, bool shown);
    /// @}

    /// Lines for people, of opening the journals: what a killed program had left, and what is wrong.
    const std::vector<std::string>& notes() const { return _notes; }

    /// The picture that outlines and edits from now on are meant in: its camera sees the outlines, and its
    /// planes limit the edits as clip planes do. At first the picture of the viewer's camera.
    void setSight(const Sight& sight) { _sight = sight; }

    /// The points of a place as an edit that begins now would mean them, to be edited later. Why it cannot be
    /// used; empty when it can.
    std::string find(const EditPlace& place, bool outside, VelOsgDBBrx::PointSelection& selection);

    /// \name Operations
    /// Each returns false while another is running. An outline in world coordinates that is more than some
    /// windows large, or reaches behind the camera, is refused.
    /// @{
    bool hide(const EditPlace& place, bool outside = false);

    /// Brings hidden points back, whoever hid them.
    bool show(const EditPlace& place);

    /// Adds the points under the polygon to the selection, or takes them out of it. A selection is a matter
    /// of the picture: no store changes. The outcome counts the points under the polygon. A sight with planes
    /// of its own selects between them alone: it begins a selection anew where points of another sight are
    /// selected, and takes no points out of that one.
    bool select(const Outline& polygon, bool add);

    /// Shows nothing but the selected points (`selectedOnly`), or everything but them; in the picture alone.
    /// Refused where nothing is selected.
    bool segment(bool selectedOnly);

    /// Finds the visible points under a line of `width` pixels: not hidden, inside the clip
    /// planes, of a class that is shown. Its ends are cut off square, its bends are round. Makes the strip of
    /// ground that it covers, seen from above, stand out in the picture; the strip is as exact as floats of
    /// world coordinates. In a section this is the section's own strip, as far as points were found along it.
    /// It replaces that of the line before; undo takes it away.
    bool line(const Outline& line, double width);

    /// The outcome has the classes of the points that it reaches.
    bool classify(const EditPlace& place, const VelOsgDBBrx::Classification& change);

    bool undo() { return await(_session.undo()); }
    bool redo() { return await(_session.redo()); }

    /// Brings the stores to how they were when they were opened, and the picture to how it was.
    bool undoAll() { return await(_session.undoAll()); }

    /// Behind the first `count` of `steps`, forwards or backwards.
    bool stepTo(size_t count);

    /// Brings every hidden point of the stores back, whoever hid it and when, and drops selection, segments
    /// and the line. Classes stay as they are: this is about what is seen.
    bool reset();

    /// Writes the classes into the stores. Undo still goes back past it.
    bool save();

    /// Gives every point the class that is in its store.
    bool dropUnsaved() { return await(_session.dropUnsaved()); }
    /// @}

    /// Every edit that the journals have and what was marked in the picture, the oldest first.
    std::vector<VelOsgDBBrx::EditStep> steps() const { return _session.steps(); }

    bool hasSelection() const { return _marks.hasSelection(); }

    /// The user's choice: from now on stores are edited whose journals cannot be written, or that another
    /// program edits, too.
    void editAnyway() { _session.editWithoutJournal(); }

    /// Ends the running operation; what it did is taken back.
    void cancel() { _session.cancel(); }

    /// Of the running operation, 0 to 1; empty for one that cannot be cancelled.
    std::optional<double> progress() const;

    bool isBusy() const { return _running.has_value(); }

    /// Whether `poll` would return something.
    bool hasOutcome() const;

    /// Once for each operation, when it has ended.
    std::optional<VelOsgDBBrx::EditOutcome> poll();

    /// Waits for the running operation to end; call it only while one runs.
    VelOsgDBBrx::EditOutcome wait();

    /// Number of points whose class is not saved, by the path of their store; without stores that have none.
    std::map<std::string, uint64_t> unsavedPoints() const { return _session.unsavedPoints(); }

    /// See `EditSession`. Any thread.
    std::map<std::string, std::array<int64_t, 256>> unsavedDifference() const
    {
        return _session.unsavedDifference();
    }

    /// Grows when an operation begins, and again when its outcome is taken: odd while one runs. Any thread.
    uint64_t revision() const { return _revision; }

    /// What it was when the last save had ended. Any thread.
    uint64_t savedRevision() const { return _savedRevision; }

    /// What the operations so far did to the number of hidden points.
    struct HiddenChanges
    {
        int64_t points = 0;      ///< that they hid, less those that they brought back
        uint64_t operations = 0; ///< that changed the number
        uint64_t untold = 0;     ///< of these, the ones that are not in `points`
    };
    const HiddenChanges& hiddenChanges() const { return _hiddenChanges; }

    /// Of the unsaved points the ones that end with the program: no journal beside their store keeps them.
    std::map<std::string, uint64_t> unkeptPoints() const;

private:
    /// An outline in pixels of a window.
    struct Drawing
    {
        WindowView view;
        std::vector<osg::Vec2d> vertices;

        VelOsgDBBrx::ScreenPlace place() const { return {vertices, view.vpw, view.width, view.height}; }
    };

    struct Running
    {
        Running() {} // without it clang takes an optional of it, within this class, for not constructible

        VelOsgDBBrx::EditOutcome outcome;
        bool inSession = false;                                    ///< the session tells what comes of it
        osg::ref_ptr<VelOsgDBBrx::LineSearchCmd> search = nullptr; ///< of a line
        std::function<void(Running&)> conclude = nullptr;          ///< completes the outcome
    };

    void takeIn(const Scene::Cloud& cloud);
    bool await(bool isStarted);
    Running* begin(const std::string& operation = std::string());
    bool edit(const std::string& operation, const EditPlace& place, bool outside,
              bool (VelOsgDBBrx::EditSession::*start)(const VelOsgDBBrx::PointSelection&));
    bool refuse(const std::string& operation, const std::string& message);
    std::vector<osg::Vec4d> clipPlanes() const;
    VelOsgDBBrx::PointSelection everythingDrawn() const;
    void setFront(VelOsgDBBrx::ScreenPlace& place) const;
    std::string whyNothing() const;
    std::string tellWaiting(const Drawing& drawing, double margin) const;
    std::string drawOnWindow(const Outline& outline, size_t fewest, double margin = 1);
    void addMarkStep(const std::string& name, const PictureMarks::State& before);
    void concludeLine(Running& running, double width, const std::vector<osg::Vec4d>& strip);
    std::vector<osg::observer_ptr<OctreeInfo>> octrees() const;

    Scene& _scene;
    Sight _sight;
    std::vector<std::string> _notes;
    PictureMarks _marks;
    Drawing _onWindow; ///< the outline of the operation that begins
    Drawing _whole;    ///< the same, on a window that holds as much of it as is meant
    std::optional<Running> _running;
    std::atomic<uint64_t> _revision{0};
    std::atomic<uint64_t> _savedRevision{0};
    bool _isSaving = false; ///< the running operation is a save
    HiddenChanges _hiddenChanges;
    VelOsgDBBrx::EditSession _session;
};
