#include <VelOsgDBBrx/PCViewerManager.h>

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <OpenThreads/ScopedLock>
#include <osgViewer/Viewer>

namespace VelOsgDBBrx {

namespace {

using Lock = OpenThreads::ScopedLock<OpenThreads::Mutex>;

} // namespace

PCViewerManager* PCViewerManager::getInstance()
{
    static PCViewerManager manager;
    return &manager;
}

bool PCViewerManager::registerViewer(osgViewer::Viewer* viewer, std::string name)
{
    return registerView(viewer, std::move(name));
}

bool PCViewerManager::registerView(osgViewer::View* view, std::string name)
{
    const VelThreads::Lock lock(_lock);
    Entry& entry = _entries[std::move(name)];
    if (view && !visit(entry, [](osgViewer::View&) {})) entry = {view, view->getOrCreateObserverSet()};
    return true;
}

bool PCViewerManager::unRegisterViewer(std::string name)
{
    const VelThreads::Lock lock(_lock);
    _entries.erase(name);
    return true;
}

osgViewer::Viewer* PCViewerManager::getViewer(std::string name)
{
    osgViewer::Viewer* found = nullptr;
    visit(name, [&](osgViewer::View& view) { found = dynamic_cast<osgViewer::Viewer*>(&view); });
    return found;
}

osgViewer::View* PCViewerManager::getView(std::string name)
{
    osgViewer::View* found = nullptr;
    visit(name, [&](osgViewer::View& view) { found = &view; });
    return found;
}

bool PCViewerManager::requestRedraw(const std::string& name)
{
    return visit(name, [](osgViewer::View& view) { view.requestRedraw(); });
}

void PCViewerManager::requestRedraw()
{
    const VelThreads::Lock lock(_lock);
    for (const auto& entry : _entries)
        visit(entry.second, [](osgViewer::View& view) { view.requestRedraw(); });
}

void PCViewerManager::requestRedraw(const osgViewer::ViewerBase* viewer)
{
    if (!viewer) return;
    const VelThreads::Lock lock(_lock);
    for (const auto& entry : _entries)
        visit(entry.second, [viewer](osgViewer::View& view) {
            if (view.getViewerBase() == viewer) view.requestRedraw();
        });
}

osg::ref_ptr<VelIncrementalCompileOperation> PCViewerManager::acquireCompileOperation(const std::string& name)
{
    osg::ref_ptr<VelIncrementalCompileOperation> found;
    visit(name, [&](osgViewer::View& view) {
        osgViewer::ViewerBase* viewer = view.getViewerBase();
        if (viewer)
            found = dynamic_cast<VelIncrementalCompileOperation*>(viewer->getIncrementalCompileOperation());
    });
    return found;
}

/// Under `_lock`. False when the view is gone.
bool PCViewerManager::visit(const Entry& entry, const Visitor& visitor)
{
    if (!entry.view) return false;
    Lock lock(*entry.observers->getObserverSetMutex());
    if (!entry.observers->getObserverdObject()) return false;
    visitor(*entry.view);
    return true;
}

bool PCViewerManager::visit(const std::string& name, const Visitor& visitor)
{
    const VelThreads::Lock lock(_lock);
    const auto found = _entries.find(name);
    return found != _entries.end() && visit(found->second, visitor);
}

} // namespace VelOsgDBBrx
