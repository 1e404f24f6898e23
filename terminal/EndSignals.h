#pragma once

#include <atomic>

/// While this object lives, the first signal that asks the process to end (SIGINT, SIGTERM, SIGHUP) is only
/// noted, so that the end can be an orderly one; another one of its kind ends the process. One at a time.
class EndSignals
{
public:
    /// `notice`, when not null, is written to stderr, as it is, when the signal comes. It must outlive this
    /// object.
    explicit EndSignals(const char* notice = nullptr);
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    /// Any thread may look at it at any time.
    const std::atomic<bool>& received() const;
};
