#pragma once

#include "viewer/scene/Scene.h"
#include "viewer/window/Overlay.h"
#include "viewer/window/Views.h"

#include <VelOsgDBBrx/PointPicker.h>
#include <osg/Vec2>
#include <osgGA/GUIEventHandler>

#include <optional>

/// Shows the point that the user clicks: in the overlay and as a line on stdout, its parts separated by tabs.
/// A press that turns into a drag is the camera's.
class PickHandler : public osgGA::GUIEventHandler
{
public:
    /// Puts the picker into `scene`, which, like `views`, must outlive this handler; the overlay is held.
    PickHandler(Scene& scene, const Views& views, Overlay& overlay);

    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action) override;
    void getUsage(osg::ApplicationUsage& usage) const override;

private:
    void ask(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action);
    void showAnswer();

    Scene& _scene;
    const Views& _views;
    const osg::ref_ptr<Overlay> _overlay;
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> _picker;
    std::optional<osg::Vec2> _press; ///< where the button went down, unless another handler took that
};
