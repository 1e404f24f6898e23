#include "terminal/ClassList.h"

#include <charconv>

namespace {

std::string join(const std::vector<int>& codes)
{
    std::string text;
    for (const int code : codes)
        text += (text.empty() ? "" : ",") + std::to_string(code);
    return text;
}

} // namespace

std::optional<ClassSet> parseClasses(const std::string& text)
{
    if (text.empty()) return ClassSet().set();
    const bool allBut = text[0] == '-';
    ClassSet classes;
    const char* const end = text.data() + text.size();
    for (const char* begin = text.data() + allBut;;) {
        unsigned code = 0;
        const auto [next, error] = std::from_chars(begin, end, code);
        if (error != std::errc() || code > 255) return std::nullopt;
        classes.set(code);
        if (next == end) break;
        if (*next != ',') return std::nullopt;
        begin = next + 1;
    }
    return allBut ? ~classes : classes;
}

std::string formatClasses(const ClassSet& classes)
{
    if (classes.all()) return "all";
    if (classes.none()) return "none";
    return classes.count() <= classes.size() / 2 ? join(listClasses(classes))
                                                 : "-" + join(listClasses(~classes));
}

std::vector<int> listClasses(const ClassSet& classes)
{
    std::vector<int> codes;
    for (size_t code = 0; code < classes.size(); ++code)
        if (classes[code]) codes.push_back(static_cast<int>(code));
    return codes;
}
