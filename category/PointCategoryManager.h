#pragma once

#include <VelOsgDBBrx/CategoryCmdInner.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelThreads/Mutex.h>

#include <osg/ref_ptr>

#include <atomic>
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

    osg::ref_ptr<osg::Referenced> _operationHolder VEL_GUARDED_BY(_membersMutex);

    VelThreads::Mutex _membersMutex;
    std::set<osg::ref_ptr<osg::Referenced>> _members VEL_GUARDED_BY(_membersMutex);
    osg::ref_ptr<osg::Operation> _operation VEL_GUARDED_BY(_membersMutex);

    VelThreads::Mutex _blockMutex;
    VelThreads::Condition _blockCondition;
    bool _released VEL_GUARDED_BY(_blockMutex) = false; ///< the worker has something to look at
    std::atomic<bool> _stopping{false};

    VelThreads::Mutex _queueMutex;
    std::vector<osg::ref_ptr<VelOsgDBBrx::CategoryCmdInner>>
        _queue VEL_GUARDED_BY(_queueMutex); ///< not yet applied, in arrival order
    std::vector<osg::Vec4d> _clipPlanes VEL_GUARDED_BY(_queueMutex);

    VelThreads::Mutex _threadMutex; ///< serialises start and stop; guards _worker
    std::thread _worker VEL_GUARDED_BY(_threadMutex);
};
