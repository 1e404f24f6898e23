#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// Tells on stderr how far a command is, how many points it does in a second and how long it will take: one
/// bar on a terminal, a line for every tenth elsewhere. Used from one thread.
class Progress
{
public:
    Progress();
    ~Progress();

    /// `done` of `total` points.
    void show(const std::string& stage, uint64_t done, uint64_t total);

    /// Takes the bar away, so that other lines can be printed.
    void clear();

private:
    void showBar(const std::string& text, double part);

    bool _isTerminal;
    bool _barIsShown = false;
    int _lastTenth = 0;
    const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point _lastShown;
};
