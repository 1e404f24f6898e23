#include "registry/ContextOperation.h"

#include <osgDB/DatabasePager>
#include <osgViewer/Scene>
#include <osgViewer/ViewerBase>

using VelOsgDBBrx::VelIncrementalCompileOperation;

namespace {

/// Hands what waits in one compile operation to another that takes its place.
void handOver(osgUtil::IncrementalCompileOperation& from, osgUtil::IncrementalCompileOperation& to)
{
    osgUtil::IncrementalCompileOperation::CompileSets sets;
    {
        OpenThreads::ScopedLock<OpenThreads::Mutex> lock(*from.getToCompiledMutex());
        sets.swap(from.getToCompile());
    }
    {
        OpenThreads::ScopedLock<OpenThreads::Mutex> lock(*from.getCompiledMutex());
        sets.splice(sets.end(), from.getCompiled());
    }
    for (const auto& set : sets)
        to.add(set, true);
}

/// Sets a viewer's compile operation, which OSG hands on to the pagers of its scenes. Viewers of the same
/// scene share one pager, and the first viewer to die takes it away.
void setCompileOperation(osgViewer::ViewerBase& viewer, osgUtil::IncrementalCompileOperation* operation)
{
    osgViewer::ViewerBase::Scenes scenes;
    viewer.getScenes(scenes, false);
    for (osgViewer::Scene* scene : scenes)
        if (!scene->getDatabasePager()) scene->setDatabasePager(osgDB::DatabasePager::create());
    viewer.setIncrementalCompileOperation(operation);
}

} // namespace

ContextOperation::ContextOperation(VelIncrementalCompileOperation* incremental,
                                   VelOsgUtils::DecrementalCompileOperation* decremental,
                                   VelOsgUtils::ScreenCaptureTool* capture)
    : osg::Operation("ContextOperation", true), _incremental(incremental), _decremental(decremental),
      _capture(capture)
{
}

void ContextOperation::install(osgViewer::ViewerBase& viewer, osg::GraphicsContext& context)
{
    _incremental->addGraphicsContext(&context);
    viewer.addUpdateOperation(this);
}

void ContextOperation::provideCompileOperation(osgViewer::ViewerBase& viewer)
{
    const osg::ref_ptr<osgUtil::IncrementalCompileOperation> present =
        viewer.getIncrementalCompileOperation();
    if (dynamic_cast<VelIncrementalCompileOperation*>(present.get())) return;
    setCompileOperation(viewer, _incremental);
    _hosts = present;
    if (present) handOver(*present, *_incremental);
}

void ContextOperation::retire()
{
    _retired = true;
    _capture->getFrameClock()->stop();
}

void ContextOperation::operator()(osg::Object* object)
{
    auto* viewer = dynamic_cast<osgViewer::ViewerBase*>(object);
    if (_retired) {
        uninstall(viewer);
        return;
    }
    (*_capture)(object);
    (*_decremental)(object);
    if (viewer) dropClosedContexts(*viewer);
    if (viewer && viewer->getIncrementalCompileOperation() != _incremental)
        _incremental->mergeCompiledSubgraphs(viewer->getViewerFrameStamp());
}

/// A window that the user closed compiles nothing any more.
void ContextOperation::dropClosedContexts(osgViewer::ViewerBase& viewer)
{
    osgViewer::ViewerBase::Contexts open;
    viewer.getContexts(open, true);
    _incremental->keepContexts(open);
}

/// The compile operation drops out of its contexts on their own threads, which walk their lists of operations
/// without a lock; its set of contexts is emptied first so that the viewer does not take it out of them here.
/// What still waits in it is not of the library.
void ContextOperation::uninstall(osgViewer::ViewerBase* viewer)
{
    _capture->detach();
    _decremental->finish();
    _incremental->retire();
    _incremental->getContextSet().clear();
    if (viewer && viewer->getIncrementalCompileOperation() == _incremental) {
        setCompileOperation(*viewer, _hosts);
        if (_hosts) handOver(*_incremental, *_hosts);
    }
    _hosts = nullptr;
    setKeep(false);
}
