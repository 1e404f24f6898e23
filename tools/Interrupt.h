#pragma once

#include <atomic>

/// Lets the user end a command cleanly: while an object of this class lives, SIGINT, SIGTERM and SIGHUP set
/// `requested` instead of ending the program. At most one at a time.
class Interrupt
{
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    const std::atomic<bool>& requested() const;
};
