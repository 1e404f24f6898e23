#pragma once

#include "tests/support/HeadlessViewer.h"

#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointLoadManager.h>

#include <chrono>
#include <functional>
#include <thread>
#include <vector>

/// Draws frames of the viewers, three at least, until it is so. False after 20 seconds.
inline bool drawUntil(const std::vector<osgViewer::ViewerBase*>& viewers, const std::function<bool()>& isSo)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int frame = 0; frame < 3 || !isSo(); ++frame) {
        if (std::chrono::steady_clock::now() > end) return false;
        for (osgViewer::ViewerBase* viewer : viewers)
            viewer->frame();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Draws frames until paging for the viewer's window, which is registered, is at rest.
inline bool settle(HeadlessViewer& view)
{
    return drawUntil({view.viewer},
                     [&] { return VelOsgDBBrx::GlobalObject::getPLM(view.window)->isSettled(); });
}
