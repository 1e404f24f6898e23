#include "lod/PointLoadManager.h"

#include "loading/OctreeViews.h"
#include "lod/LodPass.h"
#include "lod/PointCloudLOD.h"
#include "osgutils/WakeSignal.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgUtils/ThreadCount.h>

#include <algorithm>
#include <mutex>
#include <thread>

using VelOsgDBBrx::FrameStamp;
using VelOsgDBBrx::PointCloudLodOperation;
using VelOsgDBBrx::VelIncrementalCompileOperation;
using VelOsgUtils::DecrementalCompileOperation;
using VelOsgUtils::WakeSignal;

namespace {

/// From the first sign of a change to the look at everything, so that requests made together are applied
/// together; and between two looks while frames are asked for.
constexpr std::chrono::milliseconds kGathering{1};

/// Between two looks without any sign: a flag that was set by hand and a viewer that died give none.
constexpr std::chrono::milliseconds kLongestSleep{100};

constexpr uint64_t kDefaultMaximumPoints = 100000000;
constexpr uint64_t kDefaultMouseDiluteNum = 3000000;

/// Pause before an incomplete pass is repeated: an edit may hold an octree for seconds, and a pass over the
/// others must not run a thousand times a second meanwhile.
constexpr std::chrono::milliseconds kRetryPause{20};

/// Pause, at least, before the views are looked through for some that have gone: nobody reports that.
constexpr std::chrono::milliseconds kLookPause{20};

bool sameViews(const std::vector<FrameStamp::View>& a, const std::vector<FrameStamp::View>& b)
{
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(), [](const FrameStamp::View& x, const FrameStamp::View& y) {
            return showTheSame(x.camera, y.camera) && x.octrees == y.octrees && x.models == y.models;
        });
}

/// Null where no node shows the octree.
osg::ref_ptr<PointCloudLOD> cloudOf(const OctreeInfo& octree)
{
    osg::ref_ptr<osg::Group> group;
    if (octree.root) octree.root->group.lock(group);
    return dynamic_cast<PointCloudLOD*>(group.get());
}

} // namespace

PointLoadManager::PointLoadManager()
    : _mouseDiluteNum(kDefaultMouseDiluteNum), _maxNumOfPointCloud(kDefaultMaximumPoints)
{
}

PointLoadManager::~PointLoadManager()
{
    stop();
}

/// An octree that comes too late is free for the next context that culls it.
void PointLoadManager::registerOctree(OctreeInfo* octree)
{
    if (!queue(new RegisterOp(octree, this))) octree->registered = false;
}

void PointLoadManager::unRegisterOctree(OctreeInfo* octree)
{
    queue(new UnRegisterOp(octree, this));
}

void PointLoadManager::setOctreeVisible(OctreeInfo* octree, bool visible)
{
    queue(new OctreeVisiableOp(octree, visible));
}

void PointLoadManager::start()
{
    const VelThreads::Lock lock(_threadMutex);
    if (_started) return;
    _done = false;
    _started = OpenThreads::Thread::start() == 0;
}

void PointLoadManager::stop()
{
    const VelThreads::Lock lock(_threadMutex);
    _done = true;
    raiseAbort();
    WakeSignal::raise();
    if (_started) join();
    _started = false;
}

void PointLoadManager::setLodOperation(osg::Operation* operation)
{
    raiseAbort();
    _lodOperation.set(operation);
    queue(new LodOperation);
}

osg::Operation* PointLoadManager::getLodOperation()
{
    return _lodOperation.get().get();
}

void PointLoadManager::setIncrementalCompileOperation(VelOsgDBBrx::VelIncrementalCompileOperation* operation)
{
    _incremental.set(operation);
    WakeSignal::raise();
}

VelOsgDBBrx::VelIncrementalCompileOperation* PointLoadManager::getIncrementalCompileOperation()
{
    return _incremental.get().get();
}

void PointLoadManager::setDecrementalCompileOperation(VelOsgUtils::DecrementalCompileOperation* operation)
{
    _decremental.set(operation);
    WakeSignal::raise();
}

VelOsgUtils::DecrementalCompileOperation* PointLoadManager::getDecrementalCompileOperation()
{
    return _decremental.get().get();
}

void PointLoadManager::setScreenCaptureTool(VelOsgUtils::ScreenCaptureTool* tool)
{
    _capture.set(tool);
    WakeSignal::raise();
}

VelOsgUtils::ScreenCaptureTool* PointLoadManager::getScreenCaptureTool()
{
    return _capture.get().get();
}

void PointLoadManager::setMaxNumOfPointCloud(uint64_t points)
{
    queue(new MaxNumPointOp(points, this));
}

uint64_t& PointLoadManager::getMaxNumOfPointCloud()
{
    return _maxNumOfPointCloud;
}

void PointLoadManager::setMouseDiluteNum(uint64_t points)
{
    _mouseDiluteNum = points;
}

uint64_t PointLoadManager::getMouseDiluteNum()
{
    return _mouseDiluteNum;
}

void PointLoadManager::setFilterPlanes(std::vector<osg::Vec4d> planes, int planesPerGroup)
{
    queue(new FilterPlaneOp(std::move(planes), planesPerGroup, this));
}

void PointLoadManager::setState(int state)
{
    _state = state;
    if (state == PAUSED) raiseAbort();
    WakeSignal::raise();
}

int PointLoadManager::getState()
{
    return _state;
}

void PointLoadManager::flush()
{
    queue(new FlushOp);
}

void PointLoadManager::setViewer(osgViewer::ViewerBase* viewer)
{
    const VelThreads::Lock lock(_viewerMutex);
    _viewer = viewer;
}

/// False when the manager has given up its octrees.
bool PointLoadManager::queue(Operator* request)
{
    const osg::ref_ptr<Operator> held = request;
    raiseAbort();
    {
        const VelThreads::Lock lock(_spinLock);
        if (_released) return false;
        _queue.push_back(held);
    }
    WakeSignal::raise();
    return true;
}

void PointLoadManager::raiseAbort()
{
    const osg::ref_ptr<osg::Operation> operation = _lodOperation.get();
    if (auto* lod = dynamic_cast<PointCloudLodOperation*>(operation.get())) lod->setAbort(true);
}

/// What the last context left in the scene goes in the update traversal, unless a pass wants it before that.
void PointLoadManager::insertOctree(OctreeInfo* octree)
{
    if (std::find(_octrees.begin(), _octrees.end(), octree) != _octrees.end()) return;
    _octrees.push_back(octree);
    const osg::ref_ptr<DecrementalCompileOperation> decremental = _decremental.get();
    const osg::ref_ptr<PointCloudLOD> cloud = cloudOf(*octree);
    if (!cloud || !decremental) return;
    for (const osg::ref_ptr<osg::Node>& orphan : cloud->takeOrphans())
        decremental->add(cloud, orphan);
}

void PointLoadManager::eraseOctree(OctreeInfo* octree)
{
    _erased.push_back(octree);
    _octrees.erase(std::remove(_octrees.begin(), _octrees.end(), octree), _octrees.end());
}

void PointLoadManager::applyMaxNumOfPointCloud(uint64_t points)
{
    __atomic_store_n(&_maxNumOfPointCloud, points, __ATOMIC_RELAXED);
}

void PointLoadManager::applyFilterPlanes(std::vector<osg::Vec4d> planes, int planesPerGroup)
{
    _planes = std::move(planes);
    _planesPerGroup = planesPerGroup;
}

void PointLoadManager::run()
{
    const VelOsgUtils::ThreadCount::Scope scope;
    std::this_thread::sleep_for(kGathering);
    while (!_done) {
        const uint64_t seen = WakeSignal::count();
        const auto start = std::chrono::steady_clock::now();
        if (_state != PAUSED) runOnce();
        const bool asks = framesAreWanted();
        if (asks) askForFrame();
        if (asks || WakeSignal::waitUntil(seen, nextLook(start))) std::this_thread::sleep_for(kGathering);
    }
}

/// When to look again without a signal; `start`: of the last look. What was due then and not done waits for
/// something else, such as an octree.
std::chrono::steady_clock::time_point
PointLoadManager::nextLook(std::chrono::steady_clock::time_point start) const
{
    auto next = start + kLongestSleep;
    if (_rest == Rest::INCOMPLETE && _retryTime > start) next = std::min(next, _retryTime);
    if (WakeSignal::count() != _viewsSignal && _lookTime > start) next = std::min(next, _lookTime);
    return next;
}

/// Something waits to be compiled or removed in a frame.
bool PointLoadManager::framesAreWanted()
{
    const osg::ref_ptr<VelIncrementalCompileOperation> incremental = _incremental.get();
    if (incremental && !incremental->isAbandoned() && !incremental->isEmpty()) return true;
    const osg::ref_ptr<DecrementalCompileOperation> decremental = _decremental.get();
    return decremental && decremental->pending() > 0;
}

/// Another viewer's frames would not get on with what waits; where nobody can, nobody is asked.
void PointLoadManager::askForFrame()
{
    osg::observer_ptr<osgViewer::ViewerBase> viewer;
    {
        const VelThreads::Lock lock(_viewerMutex);
        viewer = _viewer;
    }
    VelOsgDBBrx::PCViewerManager::getInstance()->requestRedraw(viewer.get());
}

void PointLoadManager::runOnce()
{
    const CameraState camera = captureCamera();
    const osg::ref_ptr<osg::Operation> operation = _lodOperation.get();
    if (auto* lod = dynamic_cast<PointCloudLodOperation*>(operation.get())) lod->setAbort(false);
    // A stop or a pause raised the flag just cleared: it set one of these first.
    if (_done || _state == PAUSED) return;

    Views views;
    std::vector<osg::ref_ptr<OctreeInfo>> octrees;
    std::vector<osg::ref_ptr<OctreeInfo>> erased; // may be the last references, and their octrees are large
    {
        const VelThreads::Lock lock(_restMutex);
        const bool requested = applyRequests();
        const bool dirty = clearDirtyFlags();
        erased.swap(_erased);
        if (_octrees.empty() || !operation) return;
        if (!isPassDue(requested || dirty || isRetryDue(), camera, views)) return;
        octrees = _octrees;
        _rest = Rest::NOT_YET;
    }
    runPass(*operation, camera, views, octrees);
}

/// `views`: the pass's, when it is due.
bool PointLoadManager::isPassDue(bool asked, const CameraState& camera, Views& views)
{
    if (!asked && !differs(camera) && !isLookDue()) return false;
    _viewsSignal = WakeSignal::count();
    _viewsRevision = OctreeViews::revision();
    _lookTime = std::chrono::steady_clock::now() + kLookPause;
    views = collectViews(camera);
    return asked || !sameViews(views, _frameStamp->views);
}

bool PointLoadManager::isLookDue() const
{
    return _viewsRevision != OctreeViews::revision() || std::chrono::steady_clock::now() >= _lookTime;
}

/// Every camera that draws octrees of this manager, once for each place of an octree. Never empty.
PointLoadManager::Views PointLoadManager::collectViews(const CameraState& mainCamera) const
{
    Views views;
    std::vector<const osg::Camera*> cameras; // of `views`; null for the main camera
    std::vector<OctreeViews::View> drawing;
    for (size_t number = 0; number < _octrees.size(); ++number) {
        OctreeInfo& octree = *_octrees[number];
        drawing.clear();
        if (octree.views->isUnknown())
            drawing.push_back({nullptr, mainCamera, {}});
        else
            octree.views->collect(drawing);
        for (const OctreeViews::View& view : drawing) {
            size_t index = 0; // the camera's first view without this octree
            while (index < views.size() &&
                   (cameras[index] != view.camera || views[index].octrees.back() == number))
                ++index;
            if (index == views.size()) {
                cameras.push_back(view.camera);
                views.push_back({view.state, {}});
            }
            views[index].octrees.push_back(number);
            if (view.camera) views[index].models.push_back(view.model);
        }
    }
    if (views.empty()) views.push_back({mainCamera, {}});
    return views;
}

PointLoadManager::CameraState PointLoadManager::captureCamera()
{
    CameraState camera;
    const osg::ref_ptr<VelOsgUtils::ScreenCaptureTool> capture = _capture.get();
    if (!capture) return camera;
    VelOsgUtils::FrameBuffer& frame = *capture->getFrameBuffer();
    frame.lock();
    camera.projection = frame.getProjectionMatrix();
    camera.view = frame.getViewMatrix();
    camera.width = static_cast<int>(frame.getViewPort()->width());
    camera.height = static_cast<int>(frame.getViewPort()->height());
    frame.release();
    return camera;
}

bool PointLoadManager::differs(const CameraState& camera) const
{
    return !showTheSame(camera, _frameStamp->mainCamera());
}

/// Runs what is queued, in order; true when there was something.
bool PointLoadManager::applyRequests()
{
    std::deque<osg::ref_ptr<Operator>> requests;
    {
        const VelThreads::Lock lock(_spinLock);
        requests.swap(_queue);
    }
    for (const osg::ref_ptr<Operator>& request : requests)
        (*request)();
    return !requests.empty();
}

/// True when an octree was dirty.
bool PointLoadManager::clearDirtyFlags()
{
    bool dirty = false;
    for (const osg::ref_ptr<OctreeInfo>& octree : _octrees)
        if (octree->dirty && octree->dirty.exchange(0)) dirty = true;
    return dirty;
}

bool PointLoadManager::isRetryDue() const
{
    return _rest == Rest::INCOMPLETE && std::chrono::steady_clock::now() >= _retryTime;
}

void PointLoadManager::runPass(osg::Operation& operation, const CameraState& camera, Views& views,
                               std::vector<osg::ref_ptr<OctreeInfo>>& octrees)
{
    {
        const VelThreads::Lock lock(_restMutex);
        _frameStamp->planes = _planes;
        _frameStamp->planesPerGroup = _planesPerGroup;
        _frameStamp->projection = camera.projection;
        _frameStamp->view = camera.view;
        _frameStamp->width = camera.width;
        _frameStamp->height = camera.height;
        _frameStamp->views.swap(views);
        _frameStamp->octrees.swap(octrees);
        _frameStamp->maxNumOfPointCloud = __atomic_load_n(&_maxNumOfPointCloud, __ATOMIC_RELAXED);
        _frameStamp->mouseDiluteNum = _mouseDiluteNum;
        _frameStamp->incomplete = false;
    }
    operation(_frameStamp);
    _frameStamp->octrees.clear();

    const VelThreads::Lock lock(_restMutex);
    _rest = _frameStamp->incomplete ? Rest::INCOMPLETE : Rest::COMPLETE;
    _retryTime = std::chrono::steady_clock::now() + kRetryPause;
}

void PointLoadManager::watch(PointCloudLOD& cloud)
{
    const VelThreads::Lock lock(_watchedMutex);
    if (std::find(_watched.begin(), _watched.end(), &cloud) == _watched.end()) _watched.emplace_back(&cloud);
}

/// The clouds of other contexts that the context draws still.
std::vector<osg::ref_ptr<PointCloudLOD>> PointLoadManager::cloudsWatched()
{
    std::vector<osg::ref_ptr<PointCloudLOD>> clouds, over; // perhaps the last references: freed without lock
    const osg::ref_ptr<VelOsgUtils::ScreenCaptureTool> capture = _capture.get();
    const VelThreads::Lock lock(_watchedMutex);
    const auto isOver = [&](const osg::observer_ptr<PointCloudLOD>& watched) {
        osg::ref_ptr<PointCloudLOD> cloud;
        if (!capture || !watched.lock(cloud)) return true;
        const bool drawn = cloud->getOctree()->views->isDrawn(*capture->getFrameClock());
        (drawn ? clouds : over).push_back(cloud);
        return !drawn;
    };
    _watched.erase(std::remove_if(_watched.begin(), _watched.end(), isOver), _watched.end());
    return clouds;
}

bool PointLoadManager::isSettled()
{
    if (!isAtRest()) return false;
    for (const osg::ref_ptr<PointCloudLOD>& cloud : cloudsWatched()) {
        const osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> owner = cloud->loadManager();
        auto* const manager = dynamic_cast<PointLoadManager*>(owner.get());
        // A cloud that nobody has is taken over in the next frame.
        if (!manager || !cloud->getOctree()->registered || !manager->isAtRest()) return false;
    }
    return true;
}

/// The manager's own clouds are settled.
bool PointLoadManager::isAtRest()
{
    const CameraState camera = captureCamera();
    {
        const VelThreads::Lock lock(_restMutex);
        if (anythingWaits()) return false;
        if (!_octrees.empty() &&
            (_rest != Rest::COMPLETE || !sameViews(collectViews(camera), _frameStamp->views)))
            return false;
    }
    return sceneIsAtRest();
}

/// Nothing waits for a frame to be compiled, merged or removed.
bool PointLoadManager::sceneIsAtRest()
{
    const osg::ref_ptr<VelIncrementalCompileOperation> incremental = _incremental.get();
    const osg::ref_ptr<DecrementalCompileOperation> decremental = _decremental.get();
    return (!incremental || incremental->isEmpty()) && (!decremental || decremental->pending() == 0);
}

/// A request or a dirty octree waits for the thread.
bool PointLoadManager::anythingWaits()
{
    for (const osg::ref_ptr<OctreeInfo>& octree : _octrees)
        if (octree->dirty) return true;
    const VelThreads::Lock lock(_spinLock);
    return !_queue.empty();
}

void PointLoadManager::releaseOctrees()
{
    {
        const VelThreads::Lock lock(_spinLock);
        _released = true;
    }
    std::vector<osg::ref_ptr<OctreeInfo>> octrees;
    {
        const VelThreads::Lock lock(_restMutex);
        applyRequests();
        octrees.swap(_octrees);
        _erased.clear();
    }
    const osg::ref_ptr<VelIncrementalCompileOperation> incremental = _incremental.get();
    if (const osg::ref_ptr<DecrementalCompileOperation> decremental = _decremental.get())
        PointCloudLOD::leaveRemovals(*decremental);
    for (const osg::ref_ptr<OctreeInfo>& octree : octrees) {
        std::unique_lock<std::mutex> lock;
        if (octree->pointFile) lock = std::unique_lock<std::mutex>(octree->pointFile->mutex);
        LodPass::abandon(*octree, incremental);
        octree->registered = false;
        if (const osg::ref_ptr<PointCloudLOD> cloud = cloudOf(*octree)) cloud->requestRedraw();
    }
}
