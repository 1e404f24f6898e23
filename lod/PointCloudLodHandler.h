#pragma once

#include <osgGA/GUIEventHandler>

/// The event callback of every `PointCloudLOD`: switches its interaction mode, and in each frame brings the
/// services of the context to the viewer that shows the node; where that has no services, the node drops its
/// orphans. Runs in the event traversal.
class PointCloudLodHandler : public osgGA::GUIEventHandler
{
public:
    /// Always false, so that other handlers see the event. Events with the left button alone down do not
    /// change the mode.
    bool handle(const osgGA::GUIEventAdapter& event, osgGA::GUIActionAdapter& action, osg::Object* object,
                osg::NodeVisitor* visitor) override;

protected:
    ~PointCloudLodHandler() override = default;
};
