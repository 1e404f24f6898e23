#include "tools/Progress.h"

#include <algorithm>
#include <iostream>

#include <unistd.h>

namespace {

constexpr int kBarWidth = 40;
constexpr std::chrono::milliseconds kRedraw(50);

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
    if (_isTerminal) {
        showBar(stage, part);
        return;
    }
    const int tenth = static_cast<int>(part * 10);
    if (tenth <= _lastTenth) return;
    _lastTenth = tenth;
    std::cerr << tenth * 10 << " %: " << stage << std::endl;
}

void Progress::showBar(const std::string& stage, double part)
{
    const auto now = std::chrono::steady_clock::now();
    if (now - _lastShown < kRedraw) return;
    _lastShown = now;
    const int filled = static_cast<int>(part * kBarWidth);
    std::cerr << "\r\033[K[" << std::string(filled, '#') << std::string(kBarWidth - filled, ' ') << "] "
              << static_cast<int>(part * 100) << " % " << stage << std::flush;
    _barIsShown = true;
}

void Progress::clear()
{
    if (_barIsShown) std::cerr << "\r\033[K" << std::flush;
    _barIsShown = false;
}
