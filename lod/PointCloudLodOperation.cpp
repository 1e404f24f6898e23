#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include "loading/CellData.h"
#include "lod/CellVisibility.h"
#include "lod/LodPass.h"

#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/IPointLoadManager.h>

#include <OpenThreads/ScopedLock>

#include <algorithm>
#include <mutex>

namespace VelOsgDBBrx {

namespace {

osg::Matrixd localToWorld(OctreeInfo& octree)
{
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(octree.mutex);
    return octree.transform;
}

VelOsgUtils::CameraState mainCamera(const FrameStamp& frameStamp)
{
    return {frameStamp.projection, frameStamp.view, frameStamp.width, frameStamp.height};
}

void fillCamera(FrameStamp& frameStamp)
{
    const CameraGeometry camera(mainCamera(frameStamp));
    frameStamp.perspective = camera.perspective;
    if (camera.perspective) {
        frameStamp.fieldOfViewY = camera.fieldOfViewY;
    } else {
        frameStamp.orthoWidth = camera.orthoWidth;
        frameStamp.orthoHeight = camera.orthoHeight;
    }
    frameStamp.eye = camera.eye;
    frameStamp.center = camera.center;
    frameStamp.up = camera.up;
}

/// `traver` is called for an octree on show.
template <class Traver>
void walk(OctreeInfo& octree, LodPass& pass, const Traver& traver)
{
    switch (octree.visibility.load()) {
    case OctreeInfo::VISIBLE:
        traver();
        break;
    case OctreeInfo::HIDDEN_NOT_CLEARED:
        pass.removeAll(octree);
        octree.visibility = OctreeInfo::HIDDEN_CLEARED;
        break;
    default:
        break;
    }
}

/// A camera-driven pass. `makeVisibility(camera, localToWorld)` gives the test of a cell.
template <class MakeVisibility>
void runCameraPass(FrameStamp& frameStamp, LodPass& pass, const std::atomic<bool>& abort,
                   const MakeVisibility& makeVisibility)
{
    pass.clear();
    frameStamp.incomplete = false;
    fillCamera(frameStamp);

    std::vector<std::unique_lock<std::mutex>> locks; // held to the end of the pass
    for (const osg::ref_ptr<OctreeInfo>& octree : frameStamp.octrees) {
        if (!octree->pointFile) continue;
        std::unique_lock<std::mutex> lock(octree->pointFile->mutex, std::try_to_lock);
        if (!lock.owns_lock()) {
            frameStamp.incomplete = true;
            continue;
        }
        if (octree->pointFile->isOpen())
            walk(*octree, pass, [&] {
                pass.traver(*octree, makeVisibility(mainCamera(frameStamp), localToWorld(*octree)));
            });
        locks.push_back(std::move(lock));
    }
    pass.admitLevels(frameStamp.maxNumOfPointCloud);
    pass.unload();
    if (!pass.load(abort)) frameStamp.incomplete = true;
    locks.clear();
    pass.clear();
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
    runCameraPass(*frameStamp, *_pass, _abort, [&](const auto& camera, const osg::Matrixd& localToWorld) {
        return CameraVisibility(camera, *frameStamp, localToWorld);
    });
    setAbort(false);
}

PixelSpacingLod::PixelSpacingLod(osgUtil::IncrementalCompileOperation* incremental,
                                 VelOsgUtils::DecrementalCompileOperation* decremental, double pixels)
    : osg::Operation("PixelSpacingLod", true), PointCloudLodOperation(incremental, decremental),
      _pixels(std::max(0.0, pixels))
{
}

PixelSpacingLod::PixelSpacingLod(IPointLoadManager& manager, double pixels)
    : PixelSpacingLod(manager.getIncrementalCompileOperation(), manager.getDecrementalCompileOperation(),
                      pixels)
{
}

PixelSpacingLod::~PixelSpacingLod() = default;

void PixelSpacingLod::operator()(osg::Object* object)
{
    auto* frameStamp = dynamic_cast<FrameStamp*>(object);
    if (!frameStamp) return;
    runCameraPass(*frameStamp, *_pass, _abort, [&](const auto& camera, const osg::Matrixd& localToWorld) {
        return SpacingVisibility(camera, *frameStamp, localToWorld, _pixels);
    });
    setAbort(false);
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
        walk(*octree, *_pass,
             [&] { _pass->traver(*octree, RegionVisibility(*frameStamp, localToWorld(*octree))); });
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
