#include "render/FindSegmentMartixVisitor.h"

#include "lod/PointCloudLOD.h"

#include <osg/Transform>

#include <algorithm>

FindSegmentMartixVisitor::FindSegmentMartixVisitor(const osg::Camera& camera)
    : osg::NodeVisitor(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN), _camera(camera)
{
}

void FindSegmentMartixVisitor::apply(osg::Node& node)
{
    if (_foundCloud) return;
    _foundCloud = dynamic_cast<PointCloudLOD*>(&node) != nullptr;
    if (_foundCloud || !_started) _localToWorld = osg::computeLocalToWorld(wholePath());
    _started = true;
    if (!_foundCloud) traverse(node);
}

osg::NodePath FindSegmentMartixVisitor::wholePath() const
{
    const osg::NodePathList toStart = getNodePath().front()->getParentalNodePaths();
    osg::NodePath path = toStart.front();
    for (const osg::NodePath& candidate : toStart)
        if (std::find(candidate.begin(), candidate.end(), &_camera) != candidate.end()) path = candidate;
    path.insert(path.end(), getNodePath().begin() + 1, getNodePath().end());
    return path;
}
