#pragma once

#include "lod/PointCloudLOD.h"
#include "render/EdlPostRender.h"
#include "render/EdlPreRender.h"
#include "render/EyeDomeReach.h"
#include "render/FileHeights.h"
#include "render/PointDefaults.h"
#include "render/PointSpacing.h"
#include "render/SurfaceScope.h"

#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/ref_ptr>
#include <osgUtil/CullVisitor>

#include <vector>

/// The node that a host holds for a point cloud. Its only data child is the cloud's `PointCloudLOD`, itself
/// or, under eye-dome lighting, in two passes.
class PointCloudImpl : public VelOsgDBBrx::IPointCloud
{
public:
    /// Without an octree it shows nothing; `show` gives it one, once.
    PointCloudImpl() = default;
    void show(PointCloudLOD* lod);

    /// Clouds made later are drawn after earlier ones.
    explicit PointCloudImpl(PointCloudLOD* lod) { show(lod); }

    /// Shows the same octree.
    PointCloudImpl(const PointCloudImpl& other, const osg::CopyOp& copyOp);

    osg::Object* cloneType() const override { return new PointCloudImpl; }
    osg::Object* clone(const osg::CopyOp& copyOp) const override { return new PointCloudImpl(*this, copyOp); }
    bool isSameKindAs(const osg::Object* other) const override
    {
        return dynamic_cast<const PointCloudImpl*>(other) != nullptr;
    }

    /// The name by which osgDB finds the plugin that reads scene files with clouds.
    const char* libraryName() const override { return "brx"; }
    const char* className() const override { return "PointCloud"; }

    /// Draws the cloud with defaults for all state that the host has not set, above the cloud or on it.
    void traverse(osg::NodeVisitor& visitor) override;

    void enableEyeDomeLighting() override;
    void disableEyeDomeLighting() override;
    bool eyeDomeLighting() const { return _preRender.valid(); }

    /// Keeps the planes in the octree and clips what is drawn to them.
    void setPlanes(std::vector<osg::Vec4d> planes) override;

    OctreeInfo* getOctree() override;
    const OctreeInfo* octree() const { return _lod ? _lod->getOctree() : nullptr; }

    void resizeGLObjectBuffers(unsigned int maxSize) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

protected:
    ~PointCloudImpl() override = default;

private:
    /// State that a host gave single cells.
    using CellStates = std::vector<const osg::StateSet*>;

    void drawCells(osgUtil::CullVisitor& cull, const CellStates& cells);
    void drawOtherClasses(osgUtil::CullVisitor& cull, const SurfaceScope& surface, const CellStates& cells);
    void drawSamples(osgUtil::CullVisitor& cull, const SurfaceScope& surface, const CellStates& cells);
    void drawInTwoPasses(osgUtil::CullVisitor& cull, const CellStates& cells);
    osg::ref_ptr<const osg::StateSet> fileHeights(osgUtil::CullVisitor& cull);

    osg::ref_ptr<PointCloudLOD> _lod;
    osg::ref_ptr<EdlPreRender> _preRender; ///< both null while eye-dome lighting is off
    osg::ref_ptr<EdlPostRender> _postRender;
    mutable PointDefaults _defaults;
    FileHeights _heights;
    mutable PointSpacing _spacing;
    EyeDomeReach _reach;
};
