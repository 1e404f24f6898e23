#include "viewer/HelpKey.h"

#include <algorithm>
#include <cctype>

HelpKey::HelpKey(Overlay& overlay) : _overlay(&overlay) {}

void HelpKey::add(const std::string& title, const osgGA::GUIEventHandler& handler)
{
    auto list = std::find_if(_lists.begin(), _lists.end(),
                             [&](const KeyList& known) { return known.title == title; });
    if (list == _lists.end()) list = _lists.insert(list, KeyList{title, {}});
    const osg::ref_ptr<osg::ApplicationUsage> usage = new osg::ApplicationUsage;
    handler.getUsage(*usage);
    for (auto [key, description] : usage->getKeyboardMouseBindings()) {
        if (!description.empty()) description[0] = static_cast<char>(std::toupper(description[0]));
        list->keys.emplace_back(key, description);
    }
}

bool HelpKey::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    if (event.getHandled() || event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN ||
        event.getKey() != 'h') {
        return false;
    }
    _shown = !_shown;
    _overlay->setHelp(_shown ? _lists : std::vector<KeyList>());
    action.requestRedraw();
    return true;
}

void HelpKey::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("h", "These keys on / off");
}
