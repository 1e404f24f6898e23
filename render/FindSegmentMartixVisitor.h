#pragma once

#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/NodeVisitor>

/// Finds the matrices that take the points of a cloud to the screen. Started at a node with
/// `node->accept(visitor)`, it takes the frame of the first point cloud at or below the node, or the node's
/// own where there is none.
class FindSegmentMartixVisitor : public osg::NodeVisitor
{
public:
    explicit FindSegmentMartixVisitor(const osg::Camera& camera);

    void apply(osg::Node& node) override;

    const osg::Matrixd& localToWorld() const { return _localToWorld; }

    /// Model x view x projection of the node found.
    osg::Matrixd getMvp() const
    {
        return _localToWorld * _camera.getViewMatrix() * _camera.getProjectionMatrix();
    }

    /// The same x window. The camera has a viewport.
    osg::Matrixd getMvpw() const { return getMvp() * _camera.getViewport()->computeWindowMatrix(); }

private:
    const osg::Camera& _camera;
    osg::Matrixd _localToWorld;
    bool _foundCloud = false;
};
