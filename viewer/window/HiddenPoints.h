#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// Counts the points that stores hide when they are opened, on a thread of its own: people who see a hole
/// should know that it can be filled. Belongs to one thread.
class HiddenPoints
{
public:
    explicit HiddenPoints(std::vector<std::string> stores);

    /// Gives up when it is not done.
    ~HiddenPoints();
    HiddenPoints(const HiddenPoints&) = delete;
    HiddenPoints& operator=(const HiddenPoints&) = delete;

    /// Once, when all are counted: what to tell people; no lines where no point is hidden. Stores that cannot
    /// be read are left out.
    std::optional<std::vector<std::string>> take();

private:
    void count();

    const std::vector<std::string> _stores;
    std::atomic<bool> _cancel{false};
    std::atomic<bool> _counted{false};
    std::vector<std::string> _lines; ///< of the thread until all are counted
    std::thread _thread;             ///< uses the others
};
