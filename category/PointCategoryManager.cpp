#include "category/PointCategoryManager.h"

#include "lod/WorldPlace.h"

#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgUtils/ThreadCount.h>

using VelOsgDBBrx::CategoryCmdInner;
using VelOsgDBBrx::CategoryData;

PointCategoryManager::~PointCategoryManager()
{
    _worker.stop();
}

void PointCategoryManager::addMember(osg::Referenced* member)
{
    const VelThreads::Lock lock(_mutex);
    _members.insert(member);
}

void PointCategoryManager::removeMember(osg::Referenced* member)
{
    const osg::ref_ptr<osg::Referenced> held = member; // freed outside the lock
    const VelThreads::Lock lock(_mutex);
    _members.erase(held);
}

void PointCategoryManager::start()
{
    _worker.start();
}

void PointCategoryManager::stop()
{
    if (!VelOsgUtils::ThreadCount::isProcessStopping()) {
        _worker.stop();
        return;
    }
    ref(); // the worker may still use this object
    _worker.detach();
}

void PointCategoryManager::setOperation(osg::Operation* operation)
{
    osg::ref_ptr<osg::Operation> held = operation;
    const VelThreads::Lock lock(_mutex);
    _operation.swap(held);
}

void PointCategoryManager::setOperationHolder(osg::Referenced* holder)
{
    osg::ref_ptr<osg::Referenced> held = holder; // the old one is freed outside the lock
    const VelThreads::Lock lock(_mutex);
    _operationHolder.swap(held);
}

osg::Referenced* PointCategoryManager::getOperationHolder()
{
    const VelThreads::Lock lock(_mutex);
    return _operationHolder;
}

void PointCategoryManager::pushCmd(CategoryCmdInner* command)
{
    if (!command) return;
    const osg::ref_ptr<CategoryCmdInner> held = command;
    updateTransforms();
    _worker.push(held);
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
    const VelThreads::Lock lock(_mutex);
    _clipPlanes = planes;
}

void PointCategoryManager::run()
{
    osg::ref_ptr<CategoryCmdInner> command;
    while (_worker.take(command)) {
        const osg::ref_ptr<CategoryData> data = takeSnapshot(*command);
        const osg::ref_ptr<osg::Operation> operation = currentOperation();
        if (operation) (*operation)(data);
    }
}

/// The command and all that wait behind it. They are taken first: what was set before a command was pushed
/// holds for it.
osg::ref_ptr<CategoryData> PointCategoryManager::takeSnapshot(CategoryCmdInner& command)
{
    osg::ref_ptr<CategoryData> data = new CategoryData;
    data->commands.emplace_back(&command);
    for (auto waiting = _worker.takeWaiting(); !waiting.empty(); waiting.pop())
        data->commands.push_back(waiting.front());
    const VelThreads::Lock lock(_mutex);
    data->members = _members;
    data->clipPlanes = _clipPlanes;
    return data;
}

std::set<osg::ref_ptr<osg::Referenced>> PointCategoryManager::currentMembers()
{
    const VelThreads::Lock lock(_mutex);
    return _members;
}

osg::ref_ptr<osg::Operation> PointCategoryManager::currentOperation()
{
    const VelThreads::Lock lock(_mutex);
    return _operation;
}
