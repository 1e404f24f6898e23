#pragma once

#include <osgGA/GUIEventHandler>
#include <osgViewer/GraphicsWindow>

#include <map>

/// Lets 'f' show the window on the whole screen, and when pressed again in its size of before, in the middle
/// of the screen: window managers do not agree on what the place of a window is.
///
/// It acts when the key goes down: when it comes up, Shift may have been released already, and 'F' is
/// another key.
class FullScreenKey : public osgGA::GUIEventHandler
{
public:
    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    /// Pixels.
    struct Size
    {
        int width = 0;
        int height = 0;
    };

    void toggle(osgViewer::GraphicsWindow& window);

    std::map<const osgViewer::GraphicsWindow*, Size> _before; ///< of the windows that fill their screen
};
