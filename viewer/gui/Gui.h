#pragma once

#include "viewer/gui/Clipboard.h"
#include "viewer/gui/GuiContext.h"
#include "viewer/gui/GuiDrawing.h"

#include <osg/Camera>
#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgGA/GUIEventHandler>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What is drawn over the window with Dear ImGui: parts that call it each frame. As an event handler, which
/// must come first, it keeps from the others what is meant for the parts: the mouse over one of their
/// windows, what is typed into a field.
///
/// Threads: the viewer's; what the parts have made is drawn on the thread that draws.
class Gui : public osgGA::GUIEventHandler
{
public:
    using Part = std::function<void()>;

    /// A window has the size of what it shows from the second frame on.
    static constexpr int kFramesToFit = 2;

    /// Of the window, pixels from its top left.
    struct Area
    {
        float x = 0;
        float y = 0;
        float width = 0;
        float height = 0;
    };

    /// Drawn in the window of a camera, after it.
    Gui(osg::Camera& camera, float unit);

    /// Draws after another camera of the window from now on: it must be the last one that is drawn. To be
    /// called while no thread draws.
    void drawAfter(osg::Camera& camera);

    /// Gives back what drawing has made in a context, which is current. To be called while no thread draws.
    void giveBack(osg::State& state) const;

    /// Calls `part` each frame, after those added before, to make its windows. It may also draw over the
    /// scene, on `ImGui::GetBackgroundDrawList()`, in pixels from the window's top left. A part must not wait
    /// for the thread that draws: `later` is for what may do so.
    void add(Part part);

    /// Does something once the parts of this frame are through.
    void later(std::function<void()> action);

    /// Calls the parts; what they make is drawn from now on. Once a frame, when the cameras stand as they are
    /// drawn.
    void update();

    /// A frame is to be drawn for what is not shown yet.
    bool wantsFrame() const { return _framesWanted > 0 || (_wakeTime > 0 && now() >= _wakeTime); }

    /// Hands what was copied to other programs. To be called again and again, also while nothing is drawn.
    void serveClipboard() { _clipboard.serve(); }

    /// Readable when there is something for `serveClipboard`; -1 where there never is.
    int clipboardConnection() const { return _clipboard.connection(); }

    /// Asks for a frame after some seconds.
    void wakeAfter(double seconds);

    /// Seconds until `wantsFrame` is true by itself; `longest` where that is later or never.
    double untilWanted(double longest) const;

    /// Pixels that a pixel of plain text is drawn with, 1 on a screen of 96 dots an inch.
    float unit() const { return _unit; }

    /// \name The window's parts, as of this frame
    /// What docks at an edge takes it from those that come after, and has the colour of windows. What is left
    /// is the scene's.
    /// @{
    const Area& area() const { return _area; }
    void takeLeft(float width);
    void takeBottom(float height);
    /// @}

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    using osgGA::GUIEventHandler::handle;

    /// Handlers that come later see keys of keyboards that are not Latin as those of an American one.
    bool handle(osgGA::Event* event, osg::Object* object, osg::NodeVisitor* visitor) override;

protected:
    ~Gui() override;

private:
    bool push(int button) VEL_REQUIRES(GuiContext::mutex);
    bool release(int button) VEL_REQUIRES(GuiContext::mutex);
    bool scroll(const osgGA::GUIEventAdapter& event) VEL_REQUIRES(GuiContext::mutex);
    bool key(const osgGA::GUIEventAdapter& event) VEL_REQUIRES(GuiContext::mutex);
    bool dispatch(const osgGA::GUIEventAdapter& event) VEL_REQUIRES(GuiContext::mutex);
    void moveTo(const osgGA::GUIEventAdapter& event) VEL_REQUIRES(GuiContext::mutex);
    void callParts() VEL_REQUIRES(GuiContext::mutex);
    void doLater();
    static double now();

    static void copy(void* gui, const char* text);
    static const char* paste(void* gui);

    const float _unit;
    const std::shared_ptr<const GuiContext> _context;
    const osg::ref_ptr<GuiDrawing> _drawing;
    Clipboard _clipboard;
    std::string _pasted;                    ///< what Dear ImGui was told last
    osg::observer_ptr<osg::Camera> _camera; ///< the last one
    std::vector<Part> _parts;
    std::vector<std::function<void()>> _later;
    Area _area;
    std::vector<GuiDrawing::Rectangle> _taken; ///< of the area
    unsigned _ownButtons = 0;                  ///< held that went down over a window of ours, a bit each
    unsigned _sceneButtons = 0;                ///< held that did not
    int _framesWanted = 0;
    double _wakeTime = 0; ///< of `now`, seconds; 0: none
    double _lastTime = 0;
};
