#include "lod/PointCloudLodHandler.h"

#include "lod/PointCloudLOD.h"
#include "lod/ServicesLookup.h"

#include <osgViewer/View>

bool PointCloudLodHandler::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action,
                                  osg::Object* object, osg::NodeVisitor*)
{
    auto* node = dynamic_cast<PointCloudLOD*>(object);
    if (!node) return false;
    if (event.getEventType() == osgGA::GUIEventAdapter::FRAME) {
        auto* view = dynamic_cast<osgViewer::View*>(&action);
        if (view) node->noteViewer(view->getViewerBase());
        if (!ServicesLookup::get().attachView(view)) node->removeOrphans();
    }
    if (event.getButtonMask() == osgGA::GUIEventAdapter::LEFT_MOUSE_BUTTON) return false;

    switch (event.getEventType()) {
    case osgGA::GUIEventAdapter::PUSH:
        node->setMode(PointCloudLOD::PRESSED);
        break;
    case osgGA::GUIEventAdapter::RELEASE:
        node->setMode(PointCloudLOD::RELEASED);
        break;
    case osgGA::GUIEventAdapter::DRAG:
        node->setMode(PointCloudLOD::DRAGGING);
        break;
    case osgGA::GUIEventAdapter::SCROLL:
        node->setMode(PointCloudLOD::SCROLLED);
        break;
    default:
        break;
    }
    return false;
}
