#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

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
    const osg::ref_ptr<CompileSet> held = compileSet;
    compileSet->_markerObject = _markerObject;
    if (compileSet->_subgraphToCompile) compileSet->_subgraphToCompile->getBound();
    if (callBuildCompileMap) compileSet->buildCompileMap(_contexts);
    OSG_INFO << "VelIncrementalCompileOperation::pushFront(CompileSet = " << compileSet << ")" << std::endl;

    Lock lock(_toCompileMutex);
    _toCompile.push_front(held);
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
    if (_retired)
        setKeep(false);
    else
        osgUtil::IncrementalCompileOperation::operator()(context);
}

} // namespace VelOsgDBBrx
