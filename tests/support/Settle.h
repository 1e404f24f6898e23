#pragma once

#include "tests/support/HeadlessViewer.h"

#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointLoadManager.h>

#include <chrono>
#include <thread>

/// Draws frames until paging for the viewer's window, which is registered, is at rest. False after 20
/// seconds.
inline bool settle(HeadlessViewer& view)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    view.frame();
    view.frame();
    while (!VelOsgDBBrx::GlobalObject::getPLM(view.window)->isSettled()) {
        if (std::chrono::steady_clock::now() > end) return false;
        view.frame();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
