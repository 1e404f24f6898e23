#include "render/FindSegmentMartixVisitor.h"

#include "lod/PointCloudLOD.h"
#include "lod/WorldPlace.h"

FindSegmentMartixVisitor::FindSegmentMartixVisitor(const osg::Camera& camera)
    : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN), _camera(camera)
{
    setNodeMaskOverride(~0u); // what is switched off has a place too
}

void FindSegmentMartixVisitor::apply(osg::Node& node)
{
    if (_foundCloud) return;
    _foundCloud = dynamic_cast<PointCloudLOD*>(&node) != nullptr;
    if (_foundCloud || getNodePath().size() == 1)
        _localToWorld = placeInWorld(node, getNodePath().front(), &_camera).value_or(osg::Matrixd());
    if (!_foundCloud) traverse(node);
}
