#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include "loading/CellData.h"
#include "lod/CellVisibility.h"
#include "lod/LodPass.h"

#include <VelOsgDBBrx/FrameStamp.h>

#include <OpenThreads/ScopedLock>

#include <cmath>
#include <mutex>

namespace VelOsgDBBrx {

namespace {

osg::Matrixd localToWorld(OctreeInfo& octree)
{
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(octree.mutex);
    return octree.transform;
}

void fillCamera(FrameStamp& frameStamp)
{
    double aspect = 0, near = 0, far = 0;
    frameStamp.perspective = frameStamp.projection.getPerspective(frameStamp.fieldOfViewY, aspect, near, far);
    if (!frameStamp.perspective) {
        double left = 0, right = 0, bottom = 0, top = 0;
        frameStamp.projection.getOrtho(left, right, bottom, top, near, far);
        frameStamp.orthoWidth = std::abs(right - left);
        frameStamp.orthoHeight = std::abs(top - bottom);
    }
    frameStamp.view.getLookAt(frameStamp.eye, frameStamp.center, frameStamp.up, 1.0);
}

template <class Visibility>
void walk(OctreeInfo& octree, const FrameStamp& frameStamp, LodPass& pass)
{
    switch (octree.visibility.load()) {
    case OctreeInfo::VISIBLE:
        pass.traver(octree, Visibility(frameStamp, localToWorld(octree)));
        break;
    case OctreeInfo::HIDDEN_NOT_CLEARED:
        pass.removeAll(octree);
        octree.visibility = OctreeInfo::HIDDEN_CLEARED;
        break;
    default:
        break;
    }
}

} // namespace

PointCloudLodOperation::PointCloudLodOperation(osgUtil::IncrementalCompileOperation* incremental,
                                               VelOsgUtils::DecrementalCompileOperation* decremental)
    : osg::Operation("PointCloudLodOperation", true),
      _pass(std::make_unique<LodPass>(incremental, decremental))
{
}

PointCloudLodOperation::PointCloudLodOperation(const PointCloudLodOperation& other)
    : osg::Referenced(other), osg::Operation(other), _pass(std::make_unique<LodPass>(*other._pass))
{
}

PointCloudLodOperation& PointCloudLodOperation::operator=(const PointCloudLodOperation& other)
{
    *_pass = *other._pass;
    return *this;
}

PointCloudLodOperation::~PointCloudLodOperation() = default;

DynPointCloudLod::DynPointCloudLod(osgUtil::IncrementalCompileOperation* incremental,
                                   VelOsgUtils::DecrementalCompileOperation* decremental)
    : osg::Operation("DynPointCloudLod", true), PointCloudLodOperation(incremental, decremental)
{
}

DynPointCloudLod::~DynPointCloudLod() = default;

void DynPointCloudLod::operator()(osg::Object* object)
{
    auto* frameStamp = dynamic_cast<FrameStamp*>(object);
    if (!frameStamp) return;
    _pass->clear();
    frameStamp->incomplete = false;
    fillCamera(*frameStamp);

    std::vector<std::unique_lock<std::mutex>> locks; // held to the end of the pass
    for (const osg::ref_ptr<OctreeInfo>& octree : frameStamp->octrees) {
        if (!octree->pointFile) continue;
        std::unique_lock<std::mutex> lock(octree->pointFile->mutex, std::try_to_lock);
        if (!lock.owns_lock()) {
            frameStamp->incomplete = true;
            continue;
        }
        if (octree->pointFile->isOpen()) walk<CameraVisibility>(*octree, *frameStamp, *_pass);
        locks.push_back(std::move(lock));
    }
    _pass->admitLevels(frameStamp->maxNumOfPointCloud);
    _pass->unload();
    if (!_pass->load(_abort)) frameStamp->incomplete = true;
    locks.clear();
    setAbort(false);
    _pass->clear();
}

FixPointCloudLod::FixPointCloudLod(osgUtil::IncrementalCompileOperation* incremental,
                                   VelOsgUtils::DecrementalCompileOperation* decremental)
    : osg::Operation("FixPointCloudLod", true), PointCloudLodOperation(incremental, decremental)
{
}

FixPointCloudLod::~FixPointCloudLod() = default;

void FixPointCloudLod::operator()(osg::Object* object)
{
    auto* frameStamp = dynamic_cast<FrameStamp*>(object);
    if (!frameStamp) return;
    _pass->clear();
    frameStamp->incomplete = false;

    std::vector<OctreeInfo*> taken;
    for (const osg::ref_ptr<OctreeInfo>& octree : frameStamp->octrees) {
        if (octree->busy.fetch_or(1) & 1) {
            frameStamp->incomplete = true;
            continue;
        }
        taken.push_back(octree);
        walk<RegionVisibility>(*octree, *frameStamp, *_pass);
    }
    _pass->admitAllLevels();
    _pass->unload();
    if (!_pass->load(_abort)) frameStamp->incomplete = true;
    for (OctreeInfo* octree : taken)
        octree->busy = 0;
    setAbort(false);
    _pass->clear();
}

} // namespace VelOsgDBBrx
