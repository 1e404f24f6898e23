#include "viewer/EndSignals.h"

#include <csignal>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t noted = 0;

void note(int signal)
{
    noted = 1;
    std::signal(signal, SIG_DFL);
}

} // namespace

EndSignals::EndSignals()
{
    noted = 0;
    for (const int signal : kSignals)
        std::signal(signal, note);
}

EndSignals::~EndSignals()
{
    for (const int signal : kSignals)
        std::signal(signal, SIG_DFL);
}

bool EndSignals::received() const
{
    return noted != 0;
}
