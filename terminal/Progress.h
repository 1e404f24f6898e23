#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// Tells on stderr how far a command is, how many points it does in a second and how long it will take: one
/// bar on a terminal, a line for every tenth elsewhere, or for programs a JSON object for every hundredth on
/// a line of its own. Used from one thread.
class Progress
{
public:
    enum class For
    {
        People,
        Programs,
        Nobody
    };

    explicit Progress(For readers);
    ~Progress();

    /// `done` of `total` points.
    void show(const std::string& stage, uint64_t done, uint64_t total);

    /// Takes the bar away, so that other lines can be printed.
    void clear();

private:
    enum class Form
    {
        Bar,
        Lines,
        JsonLines,
        None
    };

    void showBar(const std::string& text, double part);

    const Form _form;
    bool _barIsShown = false;
    int _lastStep = 0;
    const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point _lastShown;
};
