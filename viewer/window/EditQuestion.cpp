#include "viewer/window/EditQuestion.h"

#include "viewer/edit/EditText.h"

#include <osgGA/GUIEventAdapter>

void EditQuestion::askIfSure(const Request& request, int yes)
{
    _kind = Kind::SURE;
    _asked = request;
    _yes = yes;
    const Operation& operation = request.operation();
    _lines = {operation.question, "", keyName(yes) + ": " + operation.answer + "     Esc: go on"};
}

void EditQuestion::askToEditAnyway(const std::string& why)
{
    _kind = Kind::ANYWAY;
    _lines = {why, "", "e: edit all the same, with an undo that ends with this program     Esc: do not"};
}

void EditQuestion::askToClose(const std::map<std::string, uint64_t>& unsaved, bool areKept)
{
    constexpr size_t kMostStores = 8;
    _kind = Kind::CLOSE;
    _lines = describeUnsaved(unsaved);
    if (_lines.size() > kMostStores) {
        _lines.resize(kMostStores);
        _lines.emplace_back("...");
    }
    const char* const keep = areKept ? "k: close, the journal keeps them" : "k: close, they are lost";
    for (const std::string& line : {std::string(), std::string("s: save and close     ") + keep,
                                    std::string("d: drop them and close     Esc: go on")})
        _lines.push_back(line);
}

EditQuestion::Answer EditQuestion::answer(int key)
{
    const Answer answer = meant(key);
    if (answer == Answer::NONE) return answer;
    _kind = Kind::NONE;
    _lines.clear();
    return answer;
}

EditQuestion::Answer EditQuestion::meant(int key) const
{
    if (key == osgGA::GUIEventAdapter::KEY_Escape) return Answer::LEAVE;
    if (_kind == Kind::SURE) return key == _yes ? Answer::DO_IT : Answer::NONE;
    if (_kind == Kind::ANYWAY) return key == 'e' ? Answer::EDIT_ANYWAY : Answer::NONE;
    switch (key) {
    case 's':
        return Answer::SAVE_AND_CLOSE;
    case 'k':
        return Answer::KEEP_AND_CLOSE;
    case 'd':
        return Answer::DROP_AND_CLOSE;
    default:
        return Answer::NONE;
    }
}
