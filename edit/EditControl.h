#pragma once

#include <atomic>
#include <cstdint>

/// How far an edit is, and whether it shall end. Any thread may use it at any time.
class EditControl
{
public:
    /// Begins an edit of so many cells.
    void begin(uint64_t cells)
    {
        _done = 0;
        _all = cells;
    }

    void addDone(uint64_t cells) { _done += cells; }

    /// 0 to 1; 0 for an edit that has no cells yet.
    double progress() const
    {
        const uint64_t all = _all;
        const uint64_t done = _done;
        return done < all ? static_cast<double>(done) / static_cast<double>(all) : all > 0 ? 1.0 : 0.0;
    }

    void cancel() { _isCancelled = true; }
    void clearCancel() { _isCancelled = false; }
    bool isCancelled() const { return _isCancelled; }

private:
    std::atomic<uint64_t> _done{0};
    std::atomic<uint64_t> _all{0};
    std::atomic<bool> _isCancelled{false};
};
