#pragma once

#include "viewer/Scene.h"

#include <osgGA/GUIEventHandler>

/// Keys that change how the points look and where the camera stands.
class DisplayKeys : public osgGA::GUIEventHandler
{
public:
    /// `scene` must outlive this handler.
    explicit DisplayKeys(Scene& scene) : _scene(scene) {}

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    bool press(int key, osgGA::GUIActionAdapter& action);

    Scene& _scene;
};
