#include <VelOsgDBBrx/CalcLevelVisitor.h>

#include "lod/PointCloudLOD.h"

#include <osg/Geometry>

namespace VelOsgDBBrx {

namespace {

int countPoints(const CellLeaf& leaf)
{
    int points = 0;
    for (unsigned i = 0; i < leaf.getNumDrawables(); ++i) {
        const osg::Geometry* geometry = leaf.getDrawable(i)->asGeometry();
        for (unsigned j = 0; geometry && j < geometry->getNumPrimitiveSets(); ++j)
            points += static_cast<int>(geometry->getPrimitiveSet(j)->getNumIndices());
    }
    return points;
}

} // namespace

CalcLevelVisitor::CalcLevelVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}

void CalcLevelVisitor::apply(osg::Node& node)
{
    if (const auto* cloud = dynamic_cast<const PointCloudLOD*>(&node)) {
        for (const auto& [level, leaves] : cloud->getLeavesByLevel()) {
            int& points = _points[level];
            for (const auto& leaf : leaves)
                points += countPoints(*leaf.second);
        }
    }
    traverse(node);
}

} // namespace VelOsgDBBrx
