#pragma once

#include <chrono>
#include <functional>
#include <thread>

/// Asks again and again until it is so; false when it is not within half a minute.
inline bool eventually(const std::function<bool()>& isSo)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!isSo()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
