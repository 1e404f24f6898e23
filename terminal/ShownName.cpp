#include "terminal/ShownName.h"

#include "terminal/Text.h"

std::string shownName(const std::string& name)
{
    constexpr size_t kLongest = 60;
    std::string shown = printable(name);
    if (shown.size() <= kLongest) return shown;
    size_t end = kLongest;
    while (end > 0 && (static_cast<unsigned char>(shown[end]) & 0xC0) == 0x80) // inside a character
        --end;
    return shown.substr(0, end) + "...";
}
