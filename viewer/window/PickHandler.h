#pragma once

#include "viewer/measure/Measuring.h"
#include "viewer/window/Click.h"
#include "viewer/window/Overlay.h"
#include "viewer/window/Views.h"

#include <VelOsgDBBrx/PointPicker.h>
#include <osg/Vec2>
#include <osgGA/GUIEventHandler>

#include <string>

/// Finds the points that the user clicks. While something is measured they are what is measured; otherwise
/// the point is shown: in the overlay, as a line on stdout, its parts separated by tabs, and to whoever asks
/// for the last one. A press that turns into a drag is the camera's.
///
/// Threads: the viewer's.
class PickHandler : public osgGA::GUIEventHandler
{
public:
    /// Puts the picker into `scene`, which, like `views` and `measuring`, must outlive this handler; the
    /// overlay is held.
    PickHandler(Scene& scene, const Views& views, Overlay& overlay, Measuring& measuring);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    using osgGA::GUIEventHandler::handle;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    bool ask(const osg::Vec2& place, bool measures);
    void takeAnswer(osgGA::GUIActionAdapter& action);
    void showHint();
    void show(const std::optional<PointFacts>& facts);

    Scene& _scene;
    const Views& _views;
    const osg::ref_ptr<Overlay> _overlay;
    Measuring& _measuring;
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> _picker;
    Click _click{osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON};
    std::string _hint;      ///< of measuring, as the overlay shows it
    bool _asked = false;    ///< no answer yet
    bool _measures = false; ///< what was asked for last is measured
};
