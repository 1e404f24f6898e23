#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgUtils/SpinLock.h>

#include <osg/ref_ptr>

#include <map>
#include <string>

namespace osgViewer {
class Viewer;
}

namespace VelOsgDBBrx {

class VelIncrementalCompileOperation;

/// Process-wide registry of the host's viewers by name. It holds no viewer: a host unregisters one before it
/// dies. Any thread may call it.
class VEL_OSGDB_BRX_EXPORT PCViewerManager
{
public:
    static PCViewerManager* getInstance();

    PCViewerManager(const PCViewerManager&) = delete;
    PCViewerManager& operator=(const PCViewerManager&) = delete;

    /// Stores the viewer unless the name is taken; an existing entry is kept. Always true.
    bool registerViewer(osgViewer::Viewer* viewer, std::string name);

    /// Always true.
    bool unRegisterViewer(std::string name);

    /// The viewer stored under the name, or null.
    osgViewer::Viewer* getViewer(std::string name);

    /// Asks the viewer stored under the name for a redraw, while it cannot be unregistered. False when there
    /// is none.
    bool requestRedraw(const std::string& name);

    /// Asks every registered viewer for a redraw: viewers that draw on demand see cells come in only so.
    void requestRedraw();

    /// The compile operation of the viewer stored under the name, with the reference taken while the viewer
    /// cannot be unregistered; null when there is none of this library.
    osg::ref_ptr<VelIncrementalCompileOperation> acquireCompileOperation(const std::string& name);

private:
    PCViewerManager() = default;
    ~PCViewerManager() = default;

    VelOsgUtils::SpinLock _lock;
    std::map<std::string, osgViewer::Viewer*> _viewers; ///< guarded by _lock
};

} // namespace VelOsgDBBrx
