#pragma once

#include "viewer/operation/Operations.h"
#include "viewer/window/Overlay.h"

#include <osgGA/GUIEventHandler>

#include <functional>
#include <string>

/// Keys that change how the points look and where the camera stands.
class DisplayKeys : public osgGA::GUIEventHandler
{
public:
    using Tell = std::function<void(const std::string& line)>;

    /// What `stage` refers to must outlive this handler; the overlay is held. `tell` shows people why a key
    /// did nothing.
    DisplayKeys(const Stage& stage, Overlay& overlay, bool showLegend, Tell tell);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    bool press(int key);
    void updateLegend();

    const Stage _stage;
    const Tell _tell;
    const osg::ref_ptr<Overlay> _overlay;
    bool _showLegend;
    unsigned _legendRevision = 0; ///< of the scene, as the overlay has it
};
