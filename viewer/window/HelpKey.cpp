#include "viewer/window/HelpKey.h"

#include "viewer/operation/Keys.h"

#include <algorithm>
#include <cctype>
#include <tuple>

namespace {

char lower(char letter)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

/// Letters come first, a before A before b, then keys that have a name, then signs.
bool comesBefore(const std::pair<std::string, std::string>& a, const std::pair<std::string, std::string>& b)
{
    const auto rank = [](const std::string& keys) {
        const bool isSign = !std::isalnum(static_cast<unsigned char>(keys.front()));
        const bool isLetter = keys.size() == 1 || keys[1] == ' ';
        std::string text = keys;
        std::transform(text.begin(), text.end(), text.begin(), lower);
        return std::tuple(isSign ? 2 : isLetter ? 0 : 1, text, std::isupper(keys.front()) != 0);
    };
    return rank(a.first) < rank(b.first);
}

} // namespace

HelpKey::HelpKey(Overlay& overlay) : _overlay(&overlay) {}

void HelpKey::add(const std::string& title, const osgGA::GUIEventHandler& handler)
{
    const osg::ref_ptr<osg::ApplicationUsage> usage = new osg::ApplicationUsage;
    handler.getUsage(*usage);
    KeyList list{title, {}};
    for (auto [key, description] : usage->getKeyboardMouseBindings()) {
        if (!description.empty()) description[0] = static_cast<char>(std::toupper(description[0]));
        list.keys.emplace_back(key, description);
    }
    add(list);
}

void HelpKey::add(const KeyList& more)
{
    auto list = std::find_if(_lists.begin(), _lists.end(),
                             [&](const KeyList& known) { return known.title == more.title; });
    if (list == _lists.end()) list = _lists.insert(list, KeyList{more.title, {}});
    list->keys.insert(list->keys.end(), more.keys.begin(), more.keys.end());
    std::sort(list->keys.begin(), list->keys.end(), comesBefore);
}

bool HelpKey::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    const int key = keyPressed(event);
    const bool escapes = _overlay->showsHelp() && key == osgGA::GUIEventAdapter::KEY_Escape;
    if (event.getHandled() || event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN ||
        (key != 'h' && key != osgGA::GUIEventAdapter::KEY_F1 && !escapes)) {
        return false;
    }
    if (_overlay->showsHelp())
        _overlay->hideHelp();
    else
        _overlay->showHelp(_lists, key == osgGA::GUIEventAdapter::KEY_F1);
    action.requestRedraw();
    return true;
}

void HelpKey::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("h / F1", "These keys on / off");
}
