#include "render/PointCloudViewerVisitor.h"

PointCloudViewerVisitor::PointCloudViewerVisitor(Operation operation)
    : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN), _operation(std::move(operation))
{
    setNodeMaskOverride(~0u); // clouds that the host hides too
}

void PointCloudViewerVisitor::apply(osg::Group& group)
{
    if (auto* cloud = dynamic_cast<VelOsgDBBrx::IPointCloud*>(&group)) _operation(*cloud);
    traverse(group);
}
