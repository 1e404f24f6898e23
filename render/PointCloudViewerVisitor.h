#pragma once

#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/NodeVisitor>

#include <functional>

/// Calls an operation on every point cloud at or below the node that accepts it, hidden ones too.
class PointCloudViewerVisitor : public osg::NodeVisitor
{
public:
    using Operation = std::function<void(VelOsgDBBrx::IPointCloud&)>;

    explicit PointCloudViewerVisitor(Operation operation);

    void apply(osg::Group& group) override;

private:
    Operation _operation;
};
