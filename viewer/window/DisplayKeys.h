#pragma once

#include "viewer/operation/Operations.h"
#include "viewer/window/Overlay.h"

#include <osgGA/GUIEventHandler>

/// Keys that change how the points look and where the camera stands.
class DisplayKeys : public osgGA::GUIEventHandler
{
public:
    /// What `stage` refers to must outlive this handler; the overlay is held.
    DisplayKeys(const Stage& stage, Overlay& overlay, bool showLegend);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    bool press(int key);
    void updateLegend();

    const Stage _stage;
    const osg::ref_ptr<Overlay> _overlay;
    bool _showLegend;
    unsigned _legendRevision = 0; ///< of the scene, as the overlay has it
};
