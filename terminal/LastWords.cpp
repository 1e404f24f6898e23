#include "terminal/LastWords.h"

#include <array>
#include <cstdlib>
#include <exception>
#include <new>
#include <system_error>

#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

const char* programName = "";

/// Without memory of its own.
[[noreturn]] void endWith(const char* what)
{
    std::array<iovec, 4> line{};
    auto* part = line.data();
    for (const char* word : {programName, ": ", what, "; close other programs or ask for fewer points\n"})
        *part++ = {const_cast<char*>(word), strlen(word)};
    const bool isTold = writev(STDERR_FILENO, line.data(), static_cast<int>(line.size())) > 0;
    _exit(isTold ? 1 : 2);
}

[[noreturn]] void end()
{
    try {
        if (const auto uncaught = std::current_exception()) std::rethrow_exception(uncaught);
    } catch (const std::bad_alloc&) {
        endWith("there is not enough memory");
    } catch (const std::system_error&) {
        endWith("the system gives no more threads or memory");
    } catch (...) {
    }
    std::abort();
}

} // namespace

void endInOneLine(const char* program)
{
    programName = program;
    std::set_terminate(end);
}
