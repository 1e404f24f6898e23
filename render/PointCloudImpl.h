#pragma once

#include "lod/PointCloudLOD.h"
#include "render/EdlPostRender.h"
#include "render/EdlPreRender.h"
#include "render/PointDefaults.h"

#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/ref_ptr>

/// The node that a host holds for a point cloud. Its only data child is the cloud's `PointCloudLOD`, itself
/// or, under eye-dome lighting, in two passes.
class PointCloudImpl : public VelOsgDBBrx::IPointCloud
{
public:
    /// Clouds made later are drawn after earlier ones.
    explicit PointCloudImpl(PointCloudLOD* lod);

    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "PointCloudImpl"; }

    /// Draws the cloud with defaults for all state that the host has not set, above the cloud or on it.
    void traverse(osg::NodeVisitor& visitor) override;

    void enableEyeDomeLighting() override;
    void disableEyeDomeLighting() override;

    /// Keeps the planes in the octree and clips what is drawn to them.
    void setPlanes(std::vector<osg::Vec4d> planes) override;

    OctreeInfo* getOctree() override;

    void resizeGLObjectBuffers(unsigned int maxSize) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

protected:
    ~PointCloudImpl() override = default;

private:
    osg::ref_ptr<PointCloudLOD> _lod;
    osg::ref_ptr<EdlPreRender> _preRender; ///< both null while eye-dome lighting is off
    osg::ref_ptr<EdlPostRender> _postRender;
    mutable PointDefaults _defaults;
};
