#include "viewer/window/DisplayKeys.h"

#include <osgViewer/View>

namespace {

void lookFrom(CameraView::Kind kind, const Scene& scene, const osgGA::GUIEventAdapter& event,
              osgGA::GUIActionAdapter& action)
{
    auto* view = dynamic_cast<osgViewer::View*>(&action);
    osgGA::CameraManipulator* manipulator = view ? view->getCameraManipulator() : nullptr;
    if (!manipulator) return;
    const osg::Viewport* viewport = view->getCamera()->getViewport();
    CameraView wanted;
    wanted.kind = kind;
    const Look look = lookAt(wanted, scene.boundsFor(wanted), viewport ? viewport->aspectRatio() : 1.0);
    manipulator->setHomePosition(look.eye, look.center, look.up, false);
    manipulator->home(event, action); // home(double) does nothing in a manipulator that chooses among others
}

/// The light after this one: from the eye, from the sun, none.
NormalLight nextLight(NormalLight light)
{
    light.source = light.source == NormalLight::EYE   ? NormalLight::SUN
                   : light.source == NormalLight::SUN ? NormalLight::NONE
                                                      : NormalLight::EYE;
    return light;
}

EyeDomeShading stronger(EyeDomeShading shading, double factor)
{
    shading.strength *= factor;
    return shading;
}

constexpr double kStepOfStrength = 1.25;

} // namespace

DisplayKeys::DisplayKeys(Scene& scene, Overlay& overlay, bool showLegend)
    : _scene(scene), _overlay(&overlay), _showLegend(showLegend)
{
    updateLegend();
}

void DisplayKeys::updateLegend()
{
    _overlay->setLegend(_showLegend ? _scene.legend() : Legend());
    _legendRevision = _scene.legendRevision();
}

bool DisplayKeys::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    // Edits make classes that the legend did not have.
    if (event.getEventType() == osgGA::GUIEventAdapter::FRAME && _legendRevision != _scene.legendRevision())
        updateLegend();
    if (event.getHandled() || event.getEventType() != osgGA::GUIEventAdapter::KEYDOWN ||
        !press(event, action)) {
        return false;
    }
    action.requestRedraw();
    return true;
}

bool DisplayKeys::press(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action)
{
    const int key = event.getKey();
    for (const ColorModeChoice& choice : colorModeChoices()) {
        if (key != choice.key) continue;
        _scene.setColorMode(choice.mode);
        return true;
    }
    switch (key) {
    case 'd':
        _scene.setEyeDomeLighting(!_scene.eyeDomeLighting());
        return true;
    case ']':
        _scene.setShading(stronger(_scene.shading(), kStepOfStrength));
        return true;
    case '[':
        _scene.setShading(stronger(_scene.shading(), 1 / kStepOfStrength));
        return true;
    case 'B':
        _scene.setLight(nextLight(_scene.light()));
        return true;
    case 'L':
        _showLegend = !_showLegend;
        updateLegend();
        return true;
    case '+':
    case '=':
        _scene.setPointSize(_scene.pointSize() + 1);
        return true;
    case '-':
        _scene.setPointSize(_scene.pointSize() - 1);
        return true;
    case 'T':
        lookFrom(CameraView::TOP, _scene, event, action);
        return true;
    case 'N':
        lookFrom(CameraView::NORTH, _scene, event, action);
        return true;
    case 'I':
        lookFrom(CameraView::ISO, _scene, event, action);
        return true;
    case 'O':
        lookFrom(CameraView::ALL, _scene, event, action);
        return true;
    default:
        return false;
    }
}

void DisplayKeys::getUsage(osg::ApplicationUsage& usage) const
{
    for (const ColorModeChoice& choice : colorModeChoices()) {
        usage.addKeyboardMouseBinding(choice.key, choice.description);
    }
    usage.addKeyboardMouseBinding("d", "Eye-dome lighting on / off");
    usage.addKeyboardMouseBinding("[ / ]", "Weaker / stronger eye-dome lighting");
    usage.addKeyboardMouseBinding("B", "Light on normals: eye / sun / off");
    usage.addKeyboardMouseBinding("L", "Legend on / off");
    usage.addKeyboardMouseBinding("+ / -", "Larger / smaller points");
    usage.addKeyboardMouseBinding("T / N / I", "Look down / north / obliquely");
    usage.addKeyboardMouseBinding("O", "Look at everything, stray points too");
}
