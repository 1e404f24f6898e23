#include "tools/Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include <unistd.h>

namespace {

constexpr int kBarWidth = 40;
constexpr std::chrono::milliseconds kRedraw(50);
constexpr double kFirstPace = 0.5; ///< seconds; earlier nothing can be said of the pace

/// Points in a second and the time left, empty while that is not known.
std::string pace(double seconds, uint64_t done, uint64_t total)
{
    if (seconds < kFirstPace || done == 0 || done >= total) return "";
    const double perSecond = static_cast<double>(done) / seconds;
    const auto left = std::llround(static_cast<double>(total - done) / perSecond);
    char text[80];
    std::snprintf(text, sizeof text, ", %.2f million points/s, %lld:%02lld left", perSecond / 1e6, left / 60,
                  left % 60);
    return text;
}

} // namespace

Progress::Progress() : _isTerminal(isatty(STDERR_FILENO)), _lastShown() {}

Progress::~Progress()
{
    clear();
}

void Progress::show(const std::string& stage, uint64_t done, uint64_t total)
{
    const double part =
        total == 0 ? 0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - _start;
    const std::string text = stage + pace(elapsed.count(), done, total);
    if (_isTerminal) {
        showBar(text, part);
        return;
    }
    const int tenth = static_cast<int>(part * 10);
    if (tenth <= _lastTenth) return;
    _lastTenth = tenth;
    std::cerr << tenth * 10 << " %: " << text << std::endl;
}

void Progress::showBar(const std::string& text, double part)
{
    const auto now = std::chrono::steady_clock::now();
    if (now - _lastShown < kRedraw) return;
    _lastShown = now;
    const int filled = static_cast<int>(part * kBarWidth);
    std::cerr << "\r\033[K[" << std::string(filled, '#') << std::string(kBarWidth - filled, ' ') << "] "
              << static_cast<int>(part * 100) << " % " << text << std::flush;
    _barIsShown = true;
}

void Progress::clear()
{
    if (_barIsShown) std::cerr << "\r\033[K" << std::flush;
    _barIsShown = false;
}
