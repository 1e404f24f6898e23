#include <VelOsgDBBrx/PCViewerManager.h>

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osgViewer/Viewer>

#include <mutex>

namespace VelOsgDBBrx {

namespace {

using SpinLock = std::lock_guard<VelOsgUtils::SpinLock>;

} // namespace

PCViewerManager* PCViewerManager::getInstance()
{
    static PCViewerManager manager;
    return &manager;
}

bool PCViewerManager::registerViewer(osgViewer::Viewer* viewer, std::string name)
{
    SpinLock lock(_lock);
    _viewers.emplace(std::move(name), viewer);
    return true;
}

bool PCViewerManager::unRegisterViewer(std::string name)
{
    SpinLock lock(_lock);
    _viewers.erase(name);
    return true;
}

osgViewer::Viewer* PCViewerManager::getViewer(std::string name)
{
    SpinLock lock(_lock);
    const auto found = _viewers.find(name);
    return found == _viewers.end() ? nullptr : found->second;
}

bool PCViewerManager::requestRedraw(const std::string& name)
{
    SpinLock lock(_lock);
    const auto found = _viewers.find(name);
    if (found == _viewers.end() || !found->second) return false;
    found->second->requestRedraw();
    return true;
}

void PCViewerManager::requestRedraw()
{
    SpinLock lock(_lock);
    for (const auto& entry : _viewers)
        if (entry.second) entry.second->requestRedraw();
}

osg::ref_ptr<VelIncrementalCompileOperation> PCViewerManager::acquireCompileOperation(const std::string& name)
{
    SpinLock lock(_lock);
    const auto found = _viewers.find(name);
    if (found == _viewers.end() || !found->second) return nullptr;
    return dynamic_cast<VelIncrementalCompileOperation*>(found->second->getIncrementalCompileOperation());
}

} // namespace VelOsgDBBrx
