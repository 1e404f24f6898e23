#pragma once

#include "lod/PointCloudLOD.h"

#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/ref_ptr>

/// The node that a host holds for a point cloud. Its only data child is the cloud's `PointCloudLOD`.
class PointCloudImpl : public VelOsgDBBrx::IPointCloud
{
public:
    /// Clouds made later are drawn after earlier ones.
    explicit PointCloudImpl(PointCloudLOD* lod);

    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "PointCloudImpl"; }

    /// Culls its children with the state that a cloud is drawn with by default, where the host gives none.
    void traverse(osg::NodeVisitor& visitor) override;

    void enableEyeDomeLighting() override;
    void disableEyeDomeLighting() override;
    void setPlanes(std::vector<osg::Vec4d> planes) override;
    OctreeInfo* getOctree() override;

protected:
    ~PointCloudImpl() override = default;

private:
    osg::ref_ptr<PointCloudLOD> _lod;
};
