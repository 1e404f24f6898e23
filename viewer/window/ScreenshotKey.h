#pragma once

#include <osg/Camera>
#include <osg/ref_ptr>
#include <osgGA/GUIEventHandler>

/// Saves the window of a camera as the next free brxview-N.png in the working folder when F9 is pressed.
class ScreenshotKey : public osgGA::GUIEventHandler
{
public:
    /// The picture holds what the final draw callbacks that `camera` has already draw.
    explicit ScreenshotKey(osg::Camera& camera);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    class Capture;
    const osg::ref_ptr<Capture> _capture;
};
