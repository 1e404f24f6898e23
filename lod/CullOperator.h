#pragma once

#include <osg/NodeCallback>

class OctreeInfo;
class PointCloudLOD;

namespace osgUtil {
class CullVisitor;
}

/// The cull callback of every `PointCloudLOD`: keeps the octree's transform, notes the camera that draws it,
/// registers the octree with the first context that culls it, and asks for a pass when the node was moved
/// under a still camera. Several cull threads may run it at once.
class CullOperator : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override;

protected:
    ~CullOperator() override = default;

private:
    void update(PointCloudLOD& node, osgUtil::CullVisitor& visitor);
};
