#pragma once

/// While this object lives, the first signal that asks the process to end (SIGINT, SIGTERM, SIGHUP) is only
/// noted, so that the end can be an orderly one; another one ends the process. One at a time.
class EndSignals
{
public:
    EndSignals();
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    bool received() const;
};
