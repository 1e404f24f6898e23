#pragma once

#include <VelOsgDBBrx/CategoryCmdInner.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>

#include <OpenThreads/Condition>
#include <OpenThreads/Mutex>
#include <osg/ref_ptr>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

/// The category manager of a context: a worker that, whenever it is woken, hands the registered clouds and
/// the queued commands to the operation.
class PointCategoryManager : public VelOsgDBBrx::IPointCategoryManager
{
public:
    PointCategoryManager() = default;

    void addMember(osg::Referenced* member) override;
    void removeMember(osg::Referenced* member) override;
    void start() override;

    /// While the process is stopping, the worker is left to itself and this object is never freed.
    void stop() override;

    void setOperation(osg::Operation* operation) override;
    void setOperationHolder(osg::Referenced* holder) override;
    osg::Referenced* getOperationHolder() override;
    void pushCmd(VelOsgDBBrx::CategoryCmdInner* command) override;
    void pushKind1() override;
    void pushKind2() override;
    void pushKind3() override;
    void setClipPlanes(std::vector<osg::Vec4d>& planes) override;

protected:
    ~PointCategoryManager() override;

private:
    void run();
    void waitForRelease();
    void release();
    void updateTransforms();
    void pushKind(int32_t kind);
    osg::ref_ptr<VelOsgDBBrx::CategoryData> takeSnapshot();
    std::set<osg::ref_ptr<osg::Referenced>> currentMembers();
    osg::ref_ptr<osg::Operation> currentOperation();

    osg::ref_ptr<osg::Referenced> _operationHolder;

    OpenThreads::Mutex _membersMutex; ///< guards the two members below
    std::set<osg::ref_ptr<osg::Referenced>> _members;
    osg::ref_ptr<osg::Operation> _operation;

    OpenThreads::Mutex _blockMutex; ///< guards _released
    OpenThreads::Condition _blockCondition;
    bool _released = false; ///< the worker has something to look at
    std::atomic<bool> _stopping{false};

    OpenThreads::Mutex _queueMutex;                                  ///< guards the two members below
    std::vector<osg::ref_ptr<VelOsgDBBrx::CategoryCmdInner>> _queue; ///< not yet applied, in arrival order
    std::vector<osg::Vec4d> _clipPlanes;

    std::mutex _threadMutex; ///< serialises start and stop; guards _worker
    std::thread _worker;
};
