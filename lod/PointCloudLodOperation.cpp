#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include "lod/CellVisibility.h"
#include "lod/LodPass.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/IPointLoadManager.h>

#include <algorithm>
#include <mutex>

namespace VelOsgDBBrx {

namespace {

osg::Matrixd localToWorld(OctreeInfo& octree)
{
    const VelThreads::Lock lock(octree.mutex);
    return octree.transform;
}

void fillCamera(FrameStamp& frameStamp)
{
    const CameraGeometry camera(frameStamp.mainCamera());
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

/// Whether the octree is on show; takes the cells of one that was hidden just now out.
bool isShown(OctreeInfo& octree, LodPass& pass)
{
    if (octree.visibility == OctreeInfo::HIDDEN_NOT_CLEARED) {
        pass.removeAll(octree);
        octree.visibility = OctreeInfo::HIDDEN_CLEARED;
    }
    return octree.visibility == OctreeInfo::VISIBLE;
}

/// The octrees of a pass by their numbers, null where one is not on show or not to be had.
using Octrees = std::vector<OctreeInfo*>;

/// Calls `visit(number, local to world)` for every octree that the view draws.
template <class Visit>
void forEachDrawn(const FrameStamp::View& view, const Octrees& octrees, const Visit& visit)
{
    for (size_t i = 0; i < view.octrees.size(); ++i) {
        const size_t number = view.octrees[i];
        if (number >= octrees.size() || !octrees[number]) continue;
        visit(number, i < view.models.size() ? view.models[i] : localToWorld(*octrees[number]));
    }
}

template <class MakeVisibility>
void chooseForView(const FrameStamp::View& view, Octrees octrees, uint64_t maximumPoints, LodPass& pass,
                   const MakeVisibility& makeVisibility)
{
    forEachDrawn(view, octrees, [&](size_t number, const osg::Matrixd& model) {
        pass.traver(*octrees[number], makeVisibility(view.camera, model));
        octrees[number] = nullptr;
    });
    for (OctreeInfo* unseen : octrees)
        if (unseen) pass.removeAll(*unseen);
    pass.admitLevels(maximumPoints);
}

template <class MakeVisibility>
void chooseForViews(const std::vector<FrameStamp::View>& views, const Octrees& octrees,
                    uint64_t maximumPoints, LodPass& pass, const MakeVisibility& makeVisibility)
{
    for (const FrameStamp::View& view : views) {
        pass.beginView();
        forEachDrawn(view, octrees, [&](size_t number, const osg::Matrixd& model) {
            pass.want(*octrees[number], makeVisibility(view.camera, model));
        });
    }
    pass.admitViews(maximumPoints);
    for (OctreeInfo* octree : octrees)
        if (octree) pass.removeOthers(*octree);
}

/// The main camera, on all octrees.
FrameStamp::View mainView(const FrameStamp& frameStamp)
{
    FrameStamp::View view{frameStamp.mainCamera(), {}};
    for (size_t number = 0; number < frameStamp.octrees.size(); ++number)
        view.octrees.push_back(number);
    return view;
}

/// A camera-driven pass. `makeVisibility(camera, localToWorld)` gives the test of a cell.
template <class MakeVisibility>
void runCameraPass(FrameStamp& frameStamp, LodPass& pass, const std::atomic<bool>& abort,
                   std::atomic<uint64_t>& wantedPoints, const MakeVisibility& makeVisibility)
{
    pass.clear();
    frameStamp.incomplete = false;
    fillCamera(frameStamp);

    Octrees octrees(frameStamp.octrees.size(), nullptr);
    std::vector<std::unique_lock<std::mutex>> locks; // held to the end of the pass
    for (size_t number = 0; number < octrees.size(); ++number) {
        OctreeInfo* octree = frameStamp.octrees[number];
        if (!octree->pointFile) continue;
        std::unique_lock<std::mutex> lock(octree->pointFile->mutex, std::try_to_lock);
        if (!lock.owns_lock()) {
            frameStamp.incomplete = true;
            continue;
        }
        if (octree->pointFile->isOpen() && isShown(*octree, pass)) octrees[number] = octree;
        locks.push_back(std::move(lock));
    }
    const std::vector<FrameStamp::View>& views = frameStamp.views;
    if (views.size() > 1)
        chooseForViews(views, octrees, frameStamp.maxNumOfPointCloud, pass, makeVisibility);
    else
        chooseForView(views.empty() ? mainView(frameStamp) : views.front(), octrees,
                      frameStamp.maxNumOfPointCloud, pass, makeVisibility);
    wantedPoints = pass.wantedPoints();
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
    runCameraPass(*frameStamp, *_pass, _abort, _wantedPoints,
                  [&](const auto& camera, const osg::Matrixd& localToWorld) {
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
    runCameraPass(*frameStamp, *_pass, _abort, _wantedPoints,
                  [&](const auto& camera, const osg::Matrixd& localToWorld) {
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
        if (isShown(*octree, *_pass))
            _pass->traver(*octree, RegionVisibility(*frameStamp, localToWorld(*octree)));
    }
    _pass->admitAllLevels();
    _wantedPoints = _pass->wantedPoints();
    _pass->unload();
    if (!_pass->load(_abort)) frameStamp->incomplete = true;
    for (OctreeInfo* octree : taken)
        octree->busy = 0;
    setAbort(false);
    _pass->clear();
}

} // namespace VelOsgDBBrx
