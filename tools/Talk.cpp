#include "tools/Talk.h"

bool& isQuiet()
{
    static bool quiet = false;
    return quiet;
}

std::ostream& unlessQuiet(std::ostream& stream)
{
    static std::ostream nowhere(nullptr);
    return isQuiet() ? nowhere : stream;
}
