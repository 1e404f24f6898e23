#include "viewer/window/WindowLoop.h"

#include "terminal/EndSignals.h"
#include "viewer/edit/EditText.h"
#include "viewer/window/CloseRequests.h"
#include "viewer/window/WindowClear.h"
#include "viewer/window/WindowRest.h"

#include <chrono>
#include <cstdlib>

namespace {

bool isDragging(osgViewer::Viewer& viewer)
{
    return viewer.getEventQueue()->getCurrentEventState()->getButtonMask() != 0;
}

/// Frames to draw without a pause before the end, as OSG_RUN_FRAME_COUNT tells every viewer; negative: no
/// end.
long frameLimit()
{
    const char* count = std::getenv("OSG_RUN_FRAME_COUNT");
    return count && *count ? std::atol(count) : -1;
}

/// What is drawn over the scene is made when the cameras stand as they are drawn.
void drawFrame(WindowParts& parts, WindowClear& clear, bool isFirst, bool& hadSurface)
{
    osgViewer::Viewer& viewer = parts.viewer;
    const osg::Vec4& background = parts.scene.drawing().background;
    clear.setColor(background);
    for (const Sight& sight : parts.views->all())
        if (sight.camera->getClearColor() != background) sight.camera->setClearColor(background);
    if (isFirst) {
        viewer.frame();
        return;
    }
    viewer.advance();
    viewer.eventTraversal();
    if (viewer.done()) return; // nobody sees a frame that takes seconds
    viewer.updateTraversal();
    parts.gui->update();
    if (placeViews(*parts.gui, *parts.views)) viewer.requestRedraw();
    if (!hadSurface && parts.scene.surface().on && !parts.scene.clouds().empty()) {
        hadSurface = true;
        parts.announceSurface();
        return;
    }
    viewer.renderingTraversals();
}

} // namespace

void drawUntilDone(WindowParts& parts)
{
    Gui& gui = *parts.gui;
    EditKeys& editKeys = *parts.editKeys;
    MeasureKeys& measureKeys = *parts.measureKeys;
    WindowFiles& files = *parts.files;
    const Scene& scene = parts.scene;
    const VelOsgDBBrx::ContextServices& services = *parts.services;
    // A camera is known to paging one frame after it was drawn.
    constexpr int kFramesAfterAChange = 3;
    // Seconds. Other threads that have news for the window do not wake it.
    constexpr double kRestWhileBusy = 0.01;
    constexpr double kLongestRest = 0.1;
    const long limit = frameLimit();
    long frames = 0;
    bool hadSurface = false;
    const EndSignals signals;
    const osg::ref_ptr<WindowClear> clear = new WindowClear;
    osgViewer::Viewer::Contexts windows;
    parts.viewer.getContexts(windows);
    if (windows.size() == 1) clear->clearFor(*windows.front());
    WindowRest rest(parts.viewer, {gui.clipboardConnection(), files.connection()});
    for (int quietFrames = 0; !parts.viewer.done() && frames != limit && !signals.received();) {
        gui.serveClipboard();
        if (takeCloseRequests(parts.viewer)) editKeys.askToClose();
        if (editKeys.hasNews() || measureKeys.hasNews() || gui.wantsFrame()) parts.viewer.requestRedraw();
        files.update(quietFrames == kFramesAfterAChange && services.isSettled());
        if (parts.viewer.checkNeedToDoFrame() || !services.isSettled() || limit >= 0) quietFrames = 0;
        if (quietFrames == kFramesAfterAChange) {
            const bool isBusy = parts.editing->isBusy() || measureKeys.isSearching() || files.isBusy();
            rest.rest(std::chrono::duration<double>(gui.untilWanted(isBusy ? kRestWhileBusy : kLongestRest)));
            continue;
        }
        services.setBudget(scene.largestPoints());
        const auto start = std::chrono::steady_clock::now();
        drawFrame(parts, *clear, frames == 0, hadSurface);
        ++frames;
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        // With draw threads a frame waits for the one before: from the second on, its time is that of
        // drawing.
        if (++quietFrames > 1 && !isDragging(parts.viewer)) {
            parts.moveLevel->wholeFrameTook(seconds, scene.drawing().framesPerSecond);
        }
        // Not counted yet where frames follow each other without a pause, as bars ask for them.
        const uint64_t counted = parts.moveLevel->points();
        const uint64_t points = counted == 0 && services.isSettled() ? services.wantedPoints() : counted;
        parts.status->tell({points, services.wantedPoints(), services.isSettled() && !files.isOpening(),
                            files.opening(), seconds, files.hiddenPoints(),
                            totalOf(parts.editing->unsavedPoints())});
    }
}
