#include "plugin/KeepContext.h"

#include "plugin/ContextKeeper.h"

#define OBJECT_CAST dynamic_cast // callbacks have a virtual base

#include <osg/Node>
#include <osgDB/ObjectWrapper>
#include <osgDB/Registry>
#include <osgDB/Serializer>

namespace {

bool keepsContext(const osg::Callback* callback)
{
    for (; callback; callback = callback->getNestedCallback())
        if (dynamic_cast<const KeepContext*>(callback)) return true;
    return false;
}

/// Clouds of scene files that hosts wrote which keep their contexts themselves.
class KeepContextOfReadClouds : public osgDB::FinishedObjectReadCallback
{
public:
    void objectRead(osgDB::InputStream&, osg::Object& object) override
    {
        osg::Node* const cloud = object.asNode();
        if (cloud && !keepsContext(cloud->getEventCallback())) cloud->addEventCallback(new KeepContext);
    }
};

osg::Object* makeKeepContext()
{
    return new KeepContext;
}

void describe(osgDB::ObjectWrapper* wrapper)
{
    wrapper->addSerializer(new osgDB::PropByValSerializer<KeepContext, unsigned>(
                               "Budget", 0u, &KeepContext::getBudget, &KeepContext::setBudget),
                           osgDB::BaseSerializer::RW_UINT);
    osgDB::ObjectWrapper* const cloud =
        osgDB::Registry::instance()->getObjectWrapperManager()->findWrapper("brx::PointCloud");
    if (cloud) cloud->addFinishedObjectReadCallback(new KeepContextOfReadClouds);
}

const osgDB::RegisterWrapperProxy wrapper(makeKeepContext, "brx::KeepContext",
                                          "osg::Object osg::Callback brx::KeepContext", &describe);

} // namespace

bool KeepContext::handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action, osg::Object*,
                         osg::NodeVisitor*)
{
    if (auto* view = dynamic_cast<osgViewer::View*>(&action))
        ContextKeeper::instance().handle(event, *view, _budget);
    return false;
}
