#include "lod/PointCloudLODVisitor.h"

#include "lod/PointCloudLOD.h"

PointCloudLODVisitor::PointCloudLODVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

void PointCloudLODVisitor::apply(osg::Node& node)
{
    if (auto* found = dynamic_cast<PointCloudLOD*>(&node)) nodes.push_back(found);
    traverse(node);
}
