#include "viewer/window/DisplayKeys.h"

#include <utility>

DisplayKeys::DisplayKeys(const Stage& stage, Overlay& overlay, bool showLegend, Tell tell)
    : _stage(stage), _tell(std::move(tell)), _overlay(&overlay), _showLegend(showLegend)
{
    updateLegend();
}

void DisplayKeys::updateLegend()
{
    _overlay->setLegend(_showLegend ? _stage.scene.legend() : Legend());
    _legendRevision = _stage.scene.legendRevision();
}

bool DisplayKeys::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    // Edits make classes that the legend did not have.
    if (event.getEventType() == osgGA::GUIEventAdapter::FRAME &&
        _legendRevision != _stage.scene.legendRevision())
        updateLegend();
    if (event.getHandled() || event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN ||
        !press(keyPressed(event))) {
        return false;
    }
    action.requestRedraw();
    return true;
}

bool DisplayKeys::press(int key)
{
    if (key == 'L') {
        _showLegend = !_showLegend;
        updateLegend();
        return true;
    }
    const int plain = key == '=' ? '+' : key; // the same key without Shift
    const std::optional<PressedKey> pressed = findKey(plain, Key::ALWAYS);
    if (!pressed) return false;
    const Begun begun = carryOut(requestOf(*pressed, _stage.scene), _stage);
    if (!begun.message.empty()) _tell(begun.message);
    return true;
}

void DisplayKeys::getUsage(osg::ApplicationUsage& usage) const
{
    usage.addKeyboardMouseBinding("L", "legend on / off");
    for (const auto& [keys, words] : listKeys(Key::ALWAYS))
        usage.addKeyboardMouseBinding(keys, words);
}
