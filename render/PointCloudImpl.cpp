#include "render/PointCloudImpl.h"

#include "render/DepthRange.h"
#include "render/OpenGLSupport.h"
#include "render/StageEnd.h"
#include "render/StorageBuffer.h"

#include <osg/Uniform>
#include <osgUtil/CullVisitor>

#include <atomic>

namespace {

std::atomic<int> nextBinOrder{0};

/// Hands the planes to the point programs.
void clipTo(const std::vector<osg::Vec4d>& planes, osg::StateSet& state)
{
    state.getOrCreateUniform("cloudPlaneNum", osg::Uniform::INT)->set(static_cast<int>(planes.size()));
    if (planes.empty()) return;
    bindStorageBuffer(state, StorageBuffer::CloudPlanes, new osg::Vec4dArray(planes.begin(), planes.end()));
}

/// What a cull needs to know of all loaded cells.
struct LoadedCells
{
    explicit LoadedCells(const PointCloudLOD& lod)
    {
        for (unsigned i = 0; i < lod.getNumChildren(); ++i) {
            const osg::Geode& leaf = *lod.getChild(i)->asGeode();
            bounds.expandBy(leaf.getBoundingBox());
            if (leaf.getStateSet()) states.push_back(leaf.getStateSet());
            for (unsigned k = 0; k < leaf.getNumDrawables(); ++k)
                if (const osg::StateSet* const state = leaf.getDrawable(k)->getStateSet())
                    states.push_back(state);
        }
    }

    osg::BoundingBox bounds;
    std::vector<const osg::StateSet*> states; ///< that a host gave single ones
};

} // namespace

PointCloudImpl::PointCloudImpl(const PointCloudImpl& other, const osg::CopyOp& copyOp)
    : IPointCloud(other, osg::CopyOp(copyOp.getCopyFlags() & ~osg::CopyOp::DEEP_COPY_NODES))
{
    removeChildren(0, getNumChildren());
    if (!getEventCallback()) setEventCallback(copyOp(other.getEventCallback())); // osg::Node leaves it out
    if (other._lod) show(other._lod);
    if (other.eyeDomeLighting()) enableEyeDomeLighting();
}

void PointCloudImpl::show(PointCloudLOD* lod)
{
    _lod = lod;
    addChild(lod);
    osg::StateSet& state = *getOrCreateStateSet();
    if (state.getRenderBinMode() == osg::StateSet::INHERIT_RENDERBIN_DETAILS)
        state.setRenderBinDetails(nextBinOrder++, "RenderBin", osg::StateSet::USE_RENDERBIN_DETAILS);
    state.setDataVariance(osg::Object::DYNAMIC); // hosts change it while draw threads run
}

void PointCloudImpl::traverse(osg::NodeVisitor& visitor)
{
    osgUtil::CullVisitor* cull = visitor.asCullVisitor();
    if (!cull || !_lod) {
        osg::Group::traverse(visitor);
        return;
    }
    if (isKnownToLackOpenGL(*cull->getState())) return; // its programs would not link
    const LoadedCells cells(*_lod);
    const DepthRangeScope depths(*cull, cells.bounds, _postRender ? _lod.get() : nullptr);
    const SurfaceScope* surface = SurfaceScope::of(*cull->getCurrentStateGraph());
    if (surface) drawSamples(*cull, *surface, cells.states);
    if (!surface)
        drawCells(*cull, cells.states);
    else if (surface->pointState())
        drawOtherClasses(*cull, *surface, cells.states);
    holdFrameUntilStageEnds(*cull);
}

void PointCloudImpl::drawCells(osgUtil::CullVisitor& cull, const CellStates& cells)
{
    const osg::ref_ptr<const osg::StateSet> heights = fileHeights(cull);
    if (heights) cull.pushStateSet(heights);
    const osg::ref_ptr<const osg::StateSet> spacing = _spacing.state(cull, *_lod);
    if (spacing) cull.pushStateSet(spacing);
    cull.pushStateSet(_defaults.missingFrom(cull, _lod->getStateSet(), cells));
    if (_postRender)
        drawInTwoPasses(cull, cells);
    else
        osg::Group::traverse(cull);
    cull.popStateSet();
    if (spacing) cull.popStateSet();
    if (heights) cull.popStateSet();
}

void PointCloudImpl::drawInTwoPasses(osgUtil::CullVisitor& cull, const CellStates& cells)
{
    CellStates below = cells;
    below.push_back(_lod->getStateSet());
    below.push_back(_postRender->getStateSet()); // whose list of uniforms stays as it is while cameras cull
    const osg::ref_ptr<const osg::StateSet> reach = _reach.state(*cull.getCurrentStateGraph(), below);
    if (reach) cull.pushStateSet(reach);
    osg::Group::traverse(cull);
    if (reach) cull.popStateSet();
}

void PointCloudImpl::drawOtherClasses(osgUtil::CullVisitor& cull, const SurfaceScope& surface,
                                      const CellStates& cells)
{
    cull.pushStateSet(surface.pointState());
    drawCells(cull, cells);
    cull.popStateSet();
}

void PointCloudImpl::drawSamples(osgUtil::CullVisitor& cull, const SurfaceScope& surface,
                                 const CellStates& cells)
{
    osgUtil::RenderBin* const bin = cull.getCurrentRenderBin();
    cull.setCurrentRenderBin(surface.sampleBin());
    cull.pushStateSet(surface.sampleState());
    cull.pushStateSet(_defaults.missingFrom(cull, _lod->getStateSet(), cells));
    _lod->accept(cull);
    cull.popStateSet();
    cull.popStateSet();
    cull.setCurrentRenderBin(bin);
}

osg::ref_ptr<const osg::StateSet> PointCloudImpl::fileHeights(osgUtil::CullVisitor& cull)
{
    const osg::Matrixd model =
        *cull.getModelViewMatrix() * osg::Matrixd::inverse(cull.getCurrentCamera()->getViewMatrix());
    return _heights.translated(*cull.getCurrentStateGraph(), model, _lod->getOctree()->offset.z());
}

void PointCloudImpl::enableEyeDomeLighting()
{
    if (_preRender || _postRender || !_lod) return;
    const osg::ref_ptr<EyeDomeTargets> targets = EyeDomeTargets::shared();
    removeChild(_lod);

    const OctreeInfo& octree = *_lod->getOctree();
    _preRender = new EdlPreRender(targets, _lod, {osg::Vec3f(octree.min), osg::Vec3f(octree.max)});
    _preRender->getOrCreateStateSet()->setRenderBinDetails(-1, "RenderBin",
                                                           osg::StateSet::USE_RENDERBIN_DETAILS);
    addChild(_preRender);

    _postRender = new EdlPostRender(targets, _lod);
    _postRender->getOrCreateStateSet()->setRenderBinDetails(1, "RenderBin",
                                                            osg::StateSet::USE_RENDERBIN_DETAILS);
    addChild(_postRender);
}

void PointCloudImpl::disableEyeDomeLighting()
{
    if (!_preRender || !_postRender) return;
    addChild(_lod);
    removeChild(_postRender);
    removeChild(_preRender);
    _postRender = nullptr;
    _preRender = nullptr;
}

void PointCloudImpl::setPlanes(std::vector<osg::Vec4d> planes)
{
    if (!_lod) return;
    clipTo(planes, *getOrCreateStateSet());
    OctreeInfo& octree = *_lod->getOctree();
    const VelThreads::Lock lock(octree.mutex);
    octree.planes = std::move(planes);
}

OctreeInfo* PointCloudImpl::getOctree()
{
    return _lod ? _lod->getOctree() : nullptr;
}

void PointCloudImpl::resizeGLObjectBuffers(unsigned int maxSize)
{
    _defaults.resizeGLObjectBuffers(maxSize);
    _spacing.resizeGLObjectBuffers(maxSize);
    IPointCloud::resizeGLObjectBuffers(maxSize);
}

void PointCloudImpl::releaseGLObjects(osg::State* state) const
{
    _defaults.releaseGLObjects(state);
    _spacing.releaseGLObjects(state);
    IPointCloud::releaseGLObjects(state);
}
