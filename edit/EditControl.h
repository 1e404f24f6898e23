#pragma once

#include <atomic>
#include <cstdint>

/// How far an edit is, and whether it shall end. Any thread may use it at any time.
class EditControl
{
public:
    /// Begins an edit of so many cells, or another part of it: `share` of the whole is done before.
    void begin(uint64_t cells, double share = 0)
    {
        _done = 0;
        _all = cells;
        _before = share;
    }

    void addDone(uint64_t cells) { _done += cells; }

    /// 0 to 1; 0 for an edit that has no cells yet.
    double progress() const
    {
        const uint64_t all = _all;
        const uint64_t done = _done;
        const double part = done < all ? static_cast<double>(done) / static_cast<double>(all) : 1.0;
        return all > 0 ? _before + (1 - _before) * part : 0.0;
    }

    void cancel() { _isCancelled = true; }
    void clearCancel() { _isCancelled = false; }
    bool isCancelled() const { return _isCancelled; }

private:
    std::atomic<uint64_t> _done{0};
    std::atomic<uint64_t> _all{0};
    std::atomic<double> _before{0};
    std::atomic<bool> _isCancelled{false};
};
