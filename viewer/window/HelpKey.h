#pragma once

#include "viewer/window/KeyList.h"
#include "viewer/window/Overlay.h"

#include <osgGA/GUIEventHandler>

#include <string>
#include <vector>

/// Shows the keys of the viewer over the picture when 'h' or F1 is pressed, F1 to search among them; the same
/// key, or Escape, takes them away.
class HelpKey : public osgGA::GUIEventHandler
{
public:
    /// The overlay is held.
    explicit HelpKey(Overlay& overlay);

    /// Takes the keys of a handler into the list of that title.
    void add(const std::string& title, const osgGA::GUIEventHandler& handler);

    /// Takes more keys into the list of that title.
    void add(const KeyList& more);

    const std::vector<KeyList>& lists() const { return _lists; }

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    const osg::ref_ptr<Overlay> _overlay;
    std::vector<KeyList> _lists;
};
