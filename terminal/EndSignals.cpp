#include "terminal/EndSignals.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <unistd.h>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> noted{false};
std::atomic<const char*> noticeOfSignal{nullptr};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<const char*>::is_always_lock_free,
              "a signal handler may not wait for a lock");

void note(int signal)
{
    const int error = errno; // of the code that the signal came upon
    const char* const notice = noticeOfSignal;
    // Where nobody reads it, nothing can be done.
    if (!noted.exchange(true) && notice)
        static_cast<void>(!write(STDERR_FILENO, notice, std::strlen(notice)));
    std::signal(signal, SIG_DFL);
    errno = error;
}

} // namespace

EndSignals::EndSignals(const char* notice)
{
    noted = false;
    noticeOfSignal = notice;
    for (const int signal : kSignals)
        std::signal(signal, note);
}

EndSignals::~EndSignals()
{
    for (const int signal : kSignals)
        std::signal(signal, SIG_DFL);
}

const std::atomic<bool>& EndSignals::received() const
{
    return noted;
}
