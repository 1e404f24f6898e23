#pragma once

#include "lod/Operator.h"
#include "lod/Slot.h"

#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/CameraState.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>
#include <VelOsgUtils/ScreenCaptureTool.h>
#include <VelOsgUtils/SpinLock.h>
#include <VelThreads/Mutex.h>

#include <OpenThreads/Thread>
#include <osgViewer/ViewerBase>

#include <atomic>
#include <chrono>
#include <deque>
#include <vector>

class PointCloudLOD;

/// The load manager of a context: its thread runs a level-of-detail pass whenever a camera that draws one of
/// its octrees came, went or moved, a viewport was resized, a request was applied, an octree reported itself
/// dirty, or the last pass left work behind. A still picture costs a comparison ten times a second: the
/// thread sleeps until a frame, a request or an edit wakes it, and looks a millisecond later.
class PointLoadManager : public VelOsgDBBrx::IPointLoadManager, private OpenThreads::Thread
{
public:
    PointLoadManager();

    void registerOctree(OctreeInfo* octree) override;
    void unRegisterOctree(OctreeInfo* octree) override;
    void setOctreeVisible(OctreeInfo* octree, bool visible) override;
    void start() override;
    void stop() override;
    void setLodOperation(osg::Operation* operation) override;
    osg::Operation* getLodOperation() override;
    void setIncrementalCompileOperation(VelOsgDBBrx::VelIncrementalCompileOperation* operation) override;
    VelOsgDBBrx::VelIncrementalCompileOperation* getIncrementalCompileOperation() override;
    void setDecrementalCompileOperation(VelOsgUtils::DecrementalCompileOperation* operation) override;
    VelOsgUtils::DecrementalCompileOperation* getDecrementalCompileOperation() override;
    void setScreenCaptureTool(VelOsgUtils::ScreenCaptureTool* tool) override;
    VelOsgUtils::ScreenCaptureTool* getScreenCaptureTool() override;
    void setMaxNumOfPointCloud(uint64_t points) override;
    uint64_t& getMaxNumOfPointCloud() override;
    void setMouseDiluteNum(uint64_t points) override;
    uint64_t getMouseDiluteNum() override;
    void setFilterPlanes(std::vector<osg::Vec4d> planes, int planesPerGroup) override;
    void setState(int state) override;
    int getState() override;
    void flush() override;
    bool isSettled() override;

    /// The viewer of the context, observed: it alone can do what waits in the operations, and is asked for
    /// frames while something does. Any thread.
    void setViewer(osgViewer::ViewerBase* viewer);

    /// Notes that the context draws a cloud of another one: what that has to do for it counts for `isSettled`
    /// as long as the context draws it. Any thread.
    void watch(PointCloudLOD& cloud);

    /// Gives up every octree, so that another context may take it: leaves what it has in the scene to the
    /// octrees' nodes, clears their registered flags and has those who draw them draw a frame. Only while the
    /// thread is stopped, for good: no octree is accepted afterwards. Waits for edits that hold an octree's
    /// point file.
    void releaseOctrees();

    /// \name For operators, on the manager's thread
    /// @{
    void insertOctree(OctreeInfo* octree);
    void eraseOctree(OctreeInfo* octree);
    void applyMaxNumOfPointCloud(uint64_t points);
    void applyFilterPlanes(std::vector<osg::Vec4d> planes, int planesPerGroup);
    /// @}

protected:
    ~PointLoadManager() override;

private:
    using CameraState = VelOsgUtils::CameraState;
    using Views = std::vector<VelOsgDBBrx::FrameStamp::View>;

    enum class Rest
    {
        NOT_YET,  ///< no pass ran since something changed
        COMPLETE, ///< the last pass ran to its end
        INCOMPLETE
    };

    void run() override;
    void runOnce();
    bool queue(Operator* request);
    bool applyRequests();
    bool clearDirtyFlags();
    bool isRetryDue() const;
    std::chrono::steady_clock::time_point nextLook(std::chrono::steady_clock::time_point start) const;
    void runPass(osg::Operation& operation, const CameraState& camera, Views& views,
                 std::vector<osg::ref_ptr<OctreeInfo>>& octrees);
    CameraState captureCamera();
    bool differs(const CameraState& camera) const;
    Views collectViews(const CameraState& mainCamera) const;
    bool isLookDue() const;
    bool isPassDue(bool asked, const CameraState& camera, Views& views);
    bool isAtRest();
    std::vector<osg::ref_ptr<PointCloudLOD>> cloudsWatched();
    bool anythingWaits();
    bool sceneIsAtRest();
    bool framesAreWanted();
    void askForFrame();
    void raiseAbort();

    VelThreads::Mutex _threadMutex; ///< serialises start and stop
    bool _started VEL_GUARDED_BY(_threadMutex) = false;

    std::atomic<bool> _done{false};
    std::atomic<int> _state{RUNNING};
    std::atomic<uint64_t> _mouseDiluteNum;

    VelOsgUtils::SpinLock _spinLock;
    std::deque<osg::ref_ptr<Operator>> _queue VEL_GUARDED_BY(_spinLock);
    bool _released VEL_GUARDED_BY(_spinLock) = false; ///< the same: nothing is queued any more

    Slot<osg::Operation> _lodOperation;
    Slot<VelOsgDBBrx::VelIncrementalCompileOperation> _incremental;
    Slot<VelOsgUtils::DecrementalCompileOperation> _decremental;
    Slot<VelOsgUtils::ScreenCaptureTool> _capture;

    VelThreads::Mutex _viewerMutex;
    osg::observer_ptr<osgViewer::ViewerBase> _viewer VEL_GUARDED_BY(_viewerMutex);

    VelThreads::Mutex _watchedMutex VEL_ACQUIRED_BEFORE(_spinLock);
    std::vector<osg::observer_ptr<PointCloudLOD>> _watched VEL_GUARDED_BY(_watchedMutex);

    /// \name Of the manager's thread; `isSettled` reads some under `_restMutex`
    /// @{
    VelThreads::Mutex
        _restMutex VEL_ACQUIRED_BEFORE(_spinLock);  ///< held while they change, never during a pass
    std::vector<osg::ref_ptr<OctreeInfo>> _octrees; ///< each once
    std::vector<osg::ref_ptr<OctreeInfo>> _erased;  ///< kept until the lock is released
    osg::ref_ptr<VelOsgDBBrx::FrameStamp> _frameStamp = new VelOsgDBBrx::FrameStamp;
    Rest _rest = Rest::NOT_YET;
    std::chrono::steady_clock::time_point _retryTime; ///< of an incomplete pass
    uint64_t _viewsRevision = 0;                      ///< when the views were last looked through
    uint64_t _viewsSignal = 0;                        ///< of `WakeSignal`, then
    std::chrono::steady_clock::time_point _lookTime;  ///< when they are looked through again
    uint64_t _maxNumOfPointCloud; ///< handed out by reference: read and written with atomic built-ins
    std::vector<osg::Vec4d> _planes;
    int _planesPerGroup = 0;
    /// @}
};
