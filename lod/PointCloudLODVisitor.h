#pragma once

#include <osg/NodeVisitor>

#include <vector>

class PointCloudLOD;

/// Finds every `PointCloudLOD` under a node, in traversal order.
class PointCloudLODVisitor : public osg::NodeVisitor
{
public:
    PointCloudLODVisitor();

    void apply(osg::Node& node) override;

    std::vector<PointCloudLOD*> nodes;
};
