#include "terminal/Progress.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

#include <unistd.h>

namespace {

constexpr int kBarWidth = 40;
constexpr std::chrono::milliseconds kRedraw(50);
constexpr double kFirstPace = 0.5; ///< seconds; earlier nothing can be said of the pace

/// How fast work goes; of the first moments nothing can be said.
struct Pace
{
    Pace(double seconds, uint64_t done, uint64_t total)
        : isKnown(seconds >= kFirstPace && done > 0 && done < total),
          perSecond(isKnown ? static_cast<double>(done) / seconds : 0),
          secondsLeft(isKnown ? std::llround(static_cast<double>(total - done) / perSecond) : 0)
    {
    }

    const bool isKnown;
    const double perSecond;
    const long long secondsLeft;
};

std::string textOf(const Pace& pace)
{
    if (!pace.isKnown) return "";
    char text[80];
    std::snprintf(text, sizeof text, ", %.2f million points/s, %lld:%02lld left", pace.perSecond / 1e6,
                  pace.secondsLeft / 60, pace.secondsLeft % 60);
    return text;
}

std::string jsonOf(const std::string& stage, uint64_t done, uint64_t total, const Pace& pace)
{
    nlohmann::ordered_json event = {{"stage", stage}, {"points", done}, {"total", total}};
    if (pace.isKnown) {
        event["pointsPerSecond"] = std::llround(pace.perSecond);
        event["secondsLeft"] = pace.secondsLeft;
    }
    return event.dump();
}

} // namespace

Progress::Progress(For readers)
    : _form(readers == For::Nobody     ? Form::None
            : readers == For::Programs ? Form::JsonLines
            : isatty(STDERR_FILENO)    ? Form::Bar
                                       : Form::Lines),
      _lastShown()
{
}

Progress::~Progress()
{
    clear();
}

void Progress::show(const std::string& stage, uint64_t done, uint64_t total)
{
    if (_form == Form::None) return;
    const double part =
        total == 0 ? 0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - _start;
    const Pace pace(elapsed.count(), done, total);
    if (_form == Form::Bar) {
        showBar(stage + textOf(pace), part);
        return;
    }
    const int steps = _form == Form::JsonLines ? 100 : 10;
    const int step = static_cast<int>(part * steps);
    if (step <= _lastStep) return;
    _lastStep = step;
    if (_form == Form::JsonLines)
        std::cerr << jsonOf(stage, done, total, pace) << std::endl;
    else
        std::cerr << step * 10 << " %: " << stage << textOf(pace) << std::endl;
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
