#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/OperationThread>
#include <osg/Referenced>
#include <osg/Vec4d>

#include <cstdint>
#include <vector>

class OctreeInfo;

namespace VelOsgUtils {
class DecrementalCompileOperation;
class ScreenCaptureTool;
} // namespace VelOsgUtils

namespace VelOsgDBBrx {

class VelIncrementalCompileOperation;

/// Pages the point clouds registered with one graphics context: a thread that looks about once a millisecond
/// at all cameras that draw them, in this context and others, and when anything relevant changed runs the
/// level-of-detail operation.
///
/// Threads: any thread may call any operation. What is queued is applied by the manager's thread in the order
/// of the calls; objects given are held as the operation says and never touched by the caller's thread.
class VEL_OSGDB_BRX_EXPORT IPointLoadManager : public osg::Referenced
{
public:
    /// State of `setState`.
    enum State
    {
        RUNNING = 1,
        PAUSED = 2 ///< no camera is read, no pass runs; requests stay queued
    };

    virtual void
    registerOctree(OctreeInfo* octree) = 0; ///< queued; observed until applied, held from then on
    virtual void unRegisterOctree(OctreeInfo* octree) = 0;               ///< queued
    virtual void setOctreeVisible(OctreeInfo* octree, bool visible) = 0; ///< queued

    virtual void start() = 0; ///< starts the thread
    virtual void stop() = 0;  ///< ends the thread and returns after it has ended; start may follow

    /// Replaces the level-of-detail operation and forces a pass. At first it is a `DynPointCloudLod`, right
    /// for perspective cameras of 30 degrees; `PixelSpacingLod` is right for every camera, `FixPointCloudLod`
    /// needs none. It may be the host's own, too.
    virtual void setLodOperation(osg::Operation* operation) = 0;
    virtual osg::Operation* getLodOperation() = 0;

    virtual void setIncrementalCompileOperation(VelIncrementalCompileOperation* operation) = 0;
    virtual VelIncrementalCompileOperation* getIncrementalCompileOperation() = 0;
    virtual void setDecrementalCompileOperation(VelOsgUtils::DecrementalCompileOperation* operation) = 0;
    virtual VelOsgUtils::DecrementalCompileOperation* getDecrementalCompileOperation() = 0;
    virtual void setScreenCaptureTool(VelOsgUtils::ScreenCaptureTool* tool) = 0;
    virtual VelOsgUtils::ScreenCaptureTool* getScreenCaptureTool() = 0;

    /// Point budget of one pass. Queued: a new value holds from the manager's next turn on, about a
    /// millisecond later while its thread runs.
    virtual void setMaxNumOfPointCloud(uint64_t points) = 0;

    /// The budget itself, 100000000 at first. The manager's thread reads and writes it too: touch it with
    /// atomic operations (`__atomic_load_n`) while the thread runs.
    virtual uint64_t& getMaxNumOfPointCloud() = 0;

    /// The budget as a value; any thread, at any time.
    uint64_t pointBudget() { return __atomic_load_n(&getMaxNumOfPointCloud(), __ATOMIC_RELAXED); }

    virtual void setMouseDiluteNum(uint64_t points) = 0; ///< stored at once, copied into every frame stamp
    virtual uint64_t getMouseDiluteNum() = 0;

    /// Only cells inside the region are wanted. `planes` are consecutive groups of `planesPerGroup` planes in
    /// world coordinates; the region is the union of the groups, a group the intersection of its planes'
    /// positive sides. planesPerGroup below 1 means no region. Queued.
    virtual void setFilterPlanes(std::vector<osg::Vec4d> planes, int planesPerGroup) = 0;

    virtual void setState(int state) = 0;
    virtual int getState() = 0;

    virtual void flush() = 0; ///< forces one pass; queued

    /// Paging is at rest: the last pass ran to its end, no octree skipped, on the cameras as drawn last; no
    /// request and no dirty octree waits for the next one; and nothing waits to be compiled, merged or
    /// removed. What still cameras show is then final. A camera is noted in its cull traversal, and one that
    /// draws a cloud no more is left out from the second frame on: ask then. Clouds that the context draws
    /// and another one's manager pages count too: it is not settled before these are.
    virtual bool isSettled() = 0;

protected:
    ~IPointLoadManager() override = default;
};

} // namespace VelOsgDBBrx
