#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// Tells on stderr how far a command is: one bar on a terminal, a line for every tenth elsewhere. Used from
/// one thread.
class Progress
{
public:
    Progress();
    ~Progress();

    void show(const std::string& stage, uint64_t done, uint64_t total);

    /// Takes the bar away, so that other lines can be printed.
    void clear();

private:
    void showBar(const std::string& stage, double part);

    bool _isTerminal;
    bool _barIsShown = false;
    int _lastTenth = 0;
    std::chrono::steady_clock::time_point _lastShown;
};
