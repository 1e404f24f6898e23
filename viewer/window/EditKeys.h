#pragma once

#include "viewer/edit/ClassChoice.h"
#include "viewer/edit/SceneEditing.h"
#include "viewer/operation/Operations.h"
#include "viewer/window/ClassTyping.h"
#include "viewer/window/EditQuestion.h"
#include "viewer/window/Overlay.h"
#include "viewer/window/RequestPlace.h"
#include "viewer/window/ToolUse.h"
#include "viewer/window/Views.h"

#include <osgGA/GUIEventHandler>
#include <osgViewer/Viewer>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Editing by hand: a mode in which the user takes a tool, draws over the picture with it and applies an
/// operation to that by a key. A brush applies its operation to each stroke by itself. A panel of the overlay
/// tells the mode, the classes, what the last operation did and what is not saved.
///
/// While something is drawn the mouse belongs to the drawing, and the camera stands still; should it move all
/// the same, the drawing is dropped, as it is when the window changes its size. Add this handler before those
/// that use the mouse or the same keys.
///
/// An operation on a store that another program edits, or whose journal cannot be written, is refused; the
/// user is asked whether to do it all the same.
///
/// Ctrl+Q closes the viewer. It asks what becomes of unsaved classes: the viewer is to have no key of its own
/// that ends it, and whoever sees a request to close calls `askToClose`.
class EditKeys : public osgGA::GUIEventHandler
{
public:
    /// `session`, `scene`, `viewer`, `views`, `classes` and `measuring` must outlive the frames; the overlay
    /// is held.
    EditKeys(SceneEditing& session, Scene& scene, osgViewer::Viewer& viewer, Views& views, Overlay& overlay,
             ClassChoice& classes, Measuring& measuring);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

    /// Ends the viewer, once the running operation has ended and the user has said what becomes of unsaved
    /// classes.
    void askToClose();

    /// Shows lines in the panel until Escape or the next operation takes them away.
    void say(const std::vector<std::string>& lines);

    /// Shows one line instead of what the panel tells.
    void tell(const std::string& line);

    /// How much a line matters: where there is no room for all, the first of these are shown.
    enum class Gravity
    {
        DAMAGE, ///< points cannot be read
        WARNING,
        NEWS
    };

    /// Shows lines for a while from when the mouse or keys are used, or until a click or Escape takes them
    /// away.
    void mention(const std::vector<std::string>& lines, Gravity gravity = Gravity::NEWS);

    /// As `mention`, and in edit mode for good.
    void warn(const std::string& line, Gravity gravity = Gravity::WARNING);

    /// The panel does not show what there is to tell: draw a frame.
    bool hasNews() const;

    /// Does what a person asked for with a widget, as the operation's key does it.
    void act(const Request& request);

    /// Where operations open, close and write files. It outlives this.
    void setFiles(FileStage& files) { _stage.files = &files; }

    /// What the keys act on.
    const Stage& stage() const { return _stage; }

    /// \name For widgets
    /// @{
    void takeTool(const ToolKind& kind);
    ToolUse& tools() { return _tools; }

    /// What is to be done next, line by line.
    std::vector<std::string> hints() const;

    /// The classes that the last operation reached; empty where it reached none.
    const std::optional<VelOsgDBBrx::CategoryCounts>& counts() const { return _counts; }
    /// @}

private:
    using Clock = std::chrono::steady_clock;
    using Lines = std::multimap<Gravity, std::string>; ///< those of a gravity in the order of their coming

    bool handleMouse(const osgGA::GUIEventAdapter& event);
    static std::vector<std::string> firstOf(const Lines& lines);
    bool dropReport(int key);
    bool dropMentions();
    bool handleKey(const osgGA::GUIEventAdapter& event);
    void answer(int key);
    void type(int key);
    bool editByKey(int key, const osgGA::GUIEventAdapter& event);
    void stopCamera();
    void leave();
    void press(const PressedKey& pressed);
    void start(Request request);
    void paint();
    void paintNext();
    void apply(const Request& request, bool usesShape);
    void wait(const Request& request);
    void goOn();
    void update();
    void takeOutcome(const VelOsgDBBrx::EditOutcome& outcome);
    std::string working() const;
    std::vector<std::string> panel() const;
    void show();

    SceneEditing& _session;
    Scene& _scene;
    osgViewer::Viewer& _viewer;
    ClassChoice& _classes;
    Stage _stage;
    const osg::ref_ptr<Overlay> _overlay;

    bool _editing = false;
    ToolUse _tools;
    RequestPlace _place;
    ClassTyping _typing;
    EditQuestion _question;
    bool _shapeInUse = false;         ///< the running operation uses the shape up
    Request _painting;                ///< what a brush does
    std::deque<Request> _strokes;     ///< that wait to be done
    std::optional<Request> _next;     ///< waits for the running operation and the strokes
    std::string _meanwhile;           ///< what became of keys that were pressed while an operation runs
    std::function<void()> _again;     ///< does the last operation once more
    std::string _working;             ///< how far the running operation has come, as the panel says it
    bool _closing = false;            ///< close when the running operation has ended
    std::vector<std::string> _report; ///< what the last operation did, or why a key does nothing
    Lines _mentions;
    std::optional<Clock::time_point> _mentionsEnd; ///< set when somebody is at the window
    std::optional<VelOsgDBBrx::CategoryCounts> _counts;
    Lines _warnings;
    std::map<std::string, uint64_t> _unsaved;
};
