#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include "osgutils/WakeSignal.h"

#include <OpenThreads/ScopedLock>
#include <osg/Notify>

#include <algorithm>

namespace VelOsgDBBrx {

namespace {

constexpr unsigned kObjectsPerFrame = 1000;
constexpr double kMinimumSecondsPerFrame = 0.010;

using Lock = OpenThreads::ScopedLock<OpenThreads::Mutex>;

} // namespace

VelIncrementalCompileOperation::VelIncrementalCompileOperation()
{
    setMaximumNumOfObjectsToCompilePerFrame(kObjectsPerFrame);
    setMinimumTimeAvailableForGLCompileAndDeletePerFrame(kMinimumSecondsPerFrame);
}

VelIncrementalCompileOperation::~VelIncrementalCompileOperation() = default;

void VelIncrementalCompileOperation::setMoveLevel(int level)
{
    _moveLevel = level;
}

int VelIncrementalCompileOperation::getMoveLevel() const
{
    return _moveLevel;
}

bool VelIncrementalCompileOperation::isEmpty()
{
    // In this order: a set enters the compiled list before it leaves the waiting queue.
    {
        Lock lock(_toCompileMutex);
        if (!_toCompile.empty()) return false;
    }
    Lock lock(_compiledMutex);
    return _compiled.empty();
}

bool VelIncrementalCompileOperation::find(CompileSet* compileSet)
{
    if (!compileSet) return false;
    Lock lock(_toCompileMutex);
    return std::find(_toCompile.begin(), _toCompile.end(), compileSet) != _toCompile.end();
}

void VelIncrementalCompileOperation::pushFront(CompileSet* compileSet, bool callBuildCompileMap)
{
    if (!compileSet) return;
    push(*compileSet, callBuildCompileMap, true);
    OSG_INFO << "VelIncrementalCompileOperation::pushFront(CompileSet = " << compileSet << ")" << std::endl;
}

void VelIncrementalCompileOperation::pushBack(CompileSet* compileSet)
{
    if (compileSet) push(*compileSet, true, false);
}

/// No context is dropped between the set's list of contexts and its place in the queue.
void VelIncrementalCompileOperation::push(CompileSet& compileSet, bool callBuildCompileMap, bool atFront)
{
    const osg::ref_ptr<CompileSet> held = &compileSet;
    compileSet._markerObject = _markerObject;
    if (compileSet._subgraphToCompile) compileSet._subgraphToCompile->getBound();
    const VelThreads::Lock contextLock(_contextMutex);
    if (callBuildCompileMap) compileSet.buildCompileMap(_drawing.empty() ? _contexts : _drawing);

    Lock lock(_toCompileMutex);
    _toCompile.insert(atFront ? _toCompile.begin() : _toCompile.end(), held);
    VelOsgUtils::WakeSignal::raise();
}

void VelIncrementalCompileOperation::keepContexts(const std::vector<osg::GraphicsContext*>& alive)
{
    ContextSet gone = _contexts;
    {
        const VelThreads::Lock lock(_contextMutex);
        gone.insert(_drawing.begin(), _drawing.end());
    }
    for (osg::GraphicsContext* context : alive)
        gone.erase(context);
    for (osg::GraphicsContext* context : gone)
        stopWaitingFor(context);
    _abandoned = _contexts.empty();
}

bool VelIncrementalCompileOperation::isAbandoned() const
{
    return _abandoned;
}

/// The context is not touched: it may be deleted.
void VelIncrementalCompileOperation::stopWaitingFor(osg::GraphicsContext* context)
{
    const VelThreads::Lock compileLock(_compileMutex);
    const VelThreads::Lock contextLock(_contextMutex);
    _drawing.erase(context);
    _contexts.erase(context);
    Lock lock(_toCompileMutex);
    for (const osg::ref_ptr<CompileSet>& compileSet : _toCompile) {
        const auto list = compileSet->_compileMap.find(context);
        if (list == compileSet->_compileMap.end()) continue;
        if (!list->second.empty()) --compileSet->_numberCompileListsToCompile;
        compileSet->_compileMap.erase(list);
    }
}

void VelIncrementalCompileOperation::mergeCompiledSubgraphs(const osg::FrameStamp* frameStamp)
{
    osgUtil::IncrementalCompileOperation::mergeCompiledSubgraphs(frameStamp);
}

void VelIncrementalCompileOperation::retire()
{
    _retired = true;
}

void VelIncrementalCompileOperation::operator()(osg::GraphicsContext* context)
{
    if (_retired) {
        setKeep(false);
        return;
    }
    const VelThreads::Lock compileLock(_compileMutex);
    {
        const VelThreads::Lock lock(_contextMutex);
        _drawing.insert(context);
    }
    osgUtil::IncrementalCompileOperation::operator()(context);
}

} // namespace VelOsgDBBrx
