#include "render/PointCloudImpl.h"

#include "render/PointDefaults.h"

#include <OpenThreads/ScopedLock>
#include <osgUtil/CullVisitor>

#include <atomic>

namespace {

std::atomic<int> nextBinOrder{0};

} // namespace

PointCloudImpl::PointCloudImpl(PointCloudLOD* lod) : _lod(lod)
{
    addChild(lod);
    getOrCreateStateSet()->setRenderBinDetails(nextBinOrder++, "RenderBin",
                                               osg::StateSet::USE_RENDERBIN_DETAILS);
}

void PointCloudImpl::traverse(osg::NodeVisitor& visitor)
{
    osgUtil::CullVisitor* cull = visitor.asCullVisitor();
    if (cull) cull->pushStateSet(missingPointDefaults(*cull->getCurrentStateGraph()));
    osg::Group::traverse(visitor);
    if (cull) cull->popStateSet();
}

void PointCloudImpl::enableEyeDomeLighting() {}

void PointCloudImpl::disableEyeDomeLighting() {}

void PointCloudImpl::setPlanes(std::vector<osg::Vec4d> planes)
{
    if (!_lod) return;
    OctreeInfo& octree = *_lod->getOctree();
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(octree.mutex);
    octree.planes = std::move(planes);
}

OctreeInfo* PointCloudImpl::getOctree()
{
    return _lod ? _lod->getOctree() : nullptr;
}
