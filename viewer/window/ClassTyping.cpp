#include "viewer/window/ClassTyping.h"

#include <osgGA/GUIEventAdapter>

using osgGA::GUIEventAdapter;

void ClassTyping::typeDigit(int digit, double time)
{
    constexpr double kDigitsApart = 2; // seconds
    const int longer = 10 * _classes.toClass + digit;
    const bool goesOn = _digitTime && time - *_digitTime <= kDigitsApart && longer <= 255;
    _classes.toClass = goesOn ? longer : digit;
    _digitTime = time;
}

std::optional<Request> ClassTyping::type(int key, const Scene& scene, std::string& problem)
{
    std::string& text = _list->text;
    if ((key >= '0' && key <= '9') || key == ',' || (key == '-' && text.empty()))
        text += static_cast<char>(key);
    else if (key == GUIEventAdapter::KEY_BackSpace && !text.empty())
        text.pop_back();
    else if (key == GUIEventAdapter::KEY_Escape)
        _list.reset();
    else if (key == GUIEventAdapter::KEY_Return)
        return accept(scene, problem);
    return std::nullopt;
}

std::optional<Request> ClassTyping::accept(const Scene& scene, std::string& problem)
{
    const std::optional<ClassSet> classes = parseClasses(_list->text);
    if (!classes) {
        problem = _list->text + ": give classes of 0 to 255, such as 2,6 or -7,18";
        return std::nullopt;
    }
    const std::optional<PressedKey> after = _list->after;
    _list.reset();
    if (!after) {
        _classes.fromClasses = *classes;
        return std::nullopt;
    }
    Request request = requestOf(*after, scene);
    request.set(after->key->typed, *classes);
    return request;
}

std::vector<std::string> ClassTyping::hints() const
{
    if (!_list) return {};
    return {std::string(_list->after ? _list->after->key->hint : "classes that may change") + ": " +
                _list->text + "_",
            "2,6 or -7,18 for all but these; nothing for all; Enter, Esc"};
}
