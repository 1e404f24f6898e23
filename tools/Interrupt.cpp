#include "tools/Interrupt.h"

#include <csignal>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> interruptRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait for a lock");

void request(int)
{
    interruptRequested = true;
}

} // namespace

Interrupt::Interrupt()
{
    interruptRequested = false;
    for (int number : kSignals)
        std::signal(number, request);
}

Interrupt::~Interrupt()
{
    for (int number : kSignals)
        std::signal(number, SIG_DFL);
}

const std::atomic<bool>& Interrupt::requested() const
{
    return interruptRequested;
}
