#pragma once

#include <osg/Matrixd>
#include <osg/NodeCallback>

#include <mutex>

class OctreeInfo;
class PointCloudLOD;

namespace osgUtil {
class CullVisitor;
}

/// The cull callback of every `PointCloudLOD`: keeps the octree's transform, registers the octree with the
/// first context that culls it, and asks for a pass when the node was moved under a still camera. Several
/// cull threads may run it at once.
class CullOperator : public osg::NodeCallback
{
public:
    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override;

protected:
    ~CullOperator() override = default;

private:
    void update(PointCloudLOD& node, osgUtil::CullVisitor& visitor);
    void followModel(PointCloudLOD& node, const osg::Matrixd& model, const osg::Matrixd& view);

    std::mutex _mutex;       ///< guards the members below
    osg::Matrixd _lastModel; ///< the last one acted on
    osg::Matrixd _lastView;  ///< of the previous cull
};
