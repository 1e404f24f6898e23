#pragma once

#include "osgutils/QueueWorker.h"

#include <VelOsgDBBrx/CategoryCmdInner.h>
#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelThreads/Mutex.h>

#include <osg/ref_ptr>

#include <set>
#include <vector>

/// The category manager of a context: a worker that, whenever it is woken, hands the registered clouds and
/// the queued commands to the operation.
class PointCategoryManager : public VelOsgDBBrx::IPointCategoryManager
{
public:
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
    void updateTransforms();
    void pushKind(int32_t kind);
    osg::ref_ptr<VelOsgDBBrx::CategoryData> takeSnapshot(VelOsgDBBrx::CategoryCmdInner& command);
    std::set<osg::ref_ptr<osg::Referenced>> currentMembers();
    osg::ref_ptr<osg::Operation> currentOperation();

    VelThreads::Mutex _mutex;
    osg::ref_ptr<osg::Referenced> _operationHolder VEL_GUARDED_BY(_mutex);
    std::set<osg::ref_ptr<osg::Referenced>> _members VEL_GUARDED_BY(_mutex);
    osg::ref_ptr<osg::Operation> _operation VEL_GUARDED_BY(_mutex);
    std::vector<osg::Vec4d> _clipPlanes VEL_GUARDED_BY(_mutex);

    VelOsgUtils::QueueWorker<osg::ref_ptr<VelOsgDBBrx::CategoryCmdInner>> _worker{[this] { run(); }};
};
