#include "category/PointCategoryManager.h"

#include "lod/WorldPlace.h"

#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgUtils/ThreadCount.h>

using VelOsgDBBrx::CategoryCmdInner;
using VelOsgDBBrx::CategoryData;

PointCategoryManager::~PointCategoryManager()
{
    _stopping = true;
    release();
    if (_worker.joinable()) _worker.join();
}

void PointCategoryManager::addMember(osg::Referenced* member)
{
    const VelThreads::Lock lock(_membersMutex);
    _members.insert(member);
}

void PointCategoryManager::removeMember(osg::Referenced* member)
{
    const osg::ref_ptr<osg::Referenced> held = member; // freed outside the lock
    const VelThreads::Lock lock(_membersMutex);
    _members.erase(held);
}

void PointCategoryManager::start()
{
    const VelThreads::Lock lock(_threadMutex);
    if (_worker.joinable()) return;
    _stopping = false;
    _worker = std::thread([this] { run(); });
}

void PointCategoryManager::stop()
{
    const VelThreads::Lock lock(_threadMutex);
    _stopping = true;
    if (!_worker.joinable()) return;
    if (VelOsgUtils::ThreadCount::isProcessStopping()) {
        ref(); // the worker may still use this object
        _worker.detach();
        return;
    }
    release();
    _worker.join();
}

void PointCategoryManager::setOperation(osg::Operation* operation)
{
    osg::ref_ptr<osg::Operation> held = operation;
    const VelThreads::Lock lock(_membersMutex);
    _operation.swap(held);
}

void PointCategoryManager::setOperationHolder(osg::Referenced* holder)
{
    osg::ref_ptr<osg::Referenced> held = holder; // the old one is freed outside the lock
    const VelThreads::Lock lock(_membersMutex);
    _operationHolder.swap(held);
}

osg::Referenced* PointCategoryManager::getOperationHolder()
{
    const VelThreads::Lock lock(_membersMutex);
    return _operationHolder;
}

void PointCategoryManager::pushCmd(CategoryCmdInner* command)
{
    if (!command) return;
    updateTransforms();
    {
        const VelThreads::Lock lock(_queueMutex);
        _queue.push_back(command);
    }
    release();
}

/// A cloud may have been moved since the last frame. No lock is held: a cloud that dies here leaves the
/// members.
void PointCategoryManager::updateTransforms()
{
    for (const osg::ref_ptr<osg::Referenced>& member : currentMembers()) {
        auto* cloud = dynamic_cast<VelOsgDBBrx::IPointCloud*>(member.get());
        if (auto* octree = cloud ? cloud->getOctree() : dynamic_cast<OctreeInfo*>(member.get())) {
            const osg::Matrixd place = placeInWorld(*octree);
            const VelThreads::Lock lock(octree->mutex);
            octree->transform = place;
        }
    }
}

void PointCategoryManager::pushKind1()
{
    pushKind(CategoryCmdInner::UNDO);
}

void PointCategoryManager::pushKind2()
{
    pushKind(CategoryCmdInner::REDO);
}

void PointCategoryManager::pushKind3()
{
    pushKind(CategoryCmdInner::RESET);
}

void PointCategoryManager::pushKind(int32_t kind)
{
    const osg::ref_ptr<CategoryCmdInner> command = new CategoryCmdInner;
    command->kind = kind;
    pushCmd(command);
}

void PointCategoryManager::setClipPlanes(std::vector<osg::Vec4d>& planes)
{
    const VelThreads::Lock lock(_queueMutex);
    _clipPlanes = planes;
}

void PointCategoryManager::release()
{
    const VelThreads::Lock lock(_blockMutex);
    if (_released) return;
    _released = true;
    _blockCondition.notifyAll();
}

/// The mark is cleared before the snapshot is taken: a command that comes later sets it again.
void PointCategoryManager::waitForRelease()
{
    const VelThreads::Lock lock(_blockMutex);
    while (!_released)
        _blockCondition.wait(_blockMutex);
    _released = false;
}

void PointCategoryManager::run()
{
    const VelOsgUtils::ThreadCount::Scope scope;
    while (!_stopping) {
        waitForRelease();
        if (_stopping) return;
        const osg::ref_ptr<CategoryData> data = takeSnapshot();
        if (data->commands.empty()) continue;
        const osg::ref_ptr<osg::Operation> operation = currentOperation();
        if (operation) (*operation)(data);
    }
}

/// Takes the commands out of the queue.
osg::ref_ptr<CategoryData> PointCategoryManager::takeSnapshot()
{
    osg::ref_ptr<CategoryData> data = new CategoryData;
    data->members = currentMembers();
    const VelThreads::Lock lock(_queueMutex);
    data->clipPlanes = _clipPlanes;
    data->commands.swap(_queue);
    return data;
}

std::set<osg::ref_ptr<osg::Referenced>> PointCategoryManager::currentMembers()
{
    const VelThreads::Lock lock(_membersMutex);
    return _members;
}

osg::ref_ptr<osg::Operation> PointCategoryManager::currentOperation()
{
    const VelThreads::Lock lock(_membersMutex);
    return _operation;
}
