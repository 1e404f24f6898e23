#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgUtils/SpinLock.h>
#include <VelThreads/Mutex.h>

#include <osg/Observer>
#include <osg/ref_ptr>

#include <functional>
#include <map>
#include <string>

namespace osgViewer {
class View;
class Viewer;
class ViewerBase;
} // namespace osgViewer

namespace VelOsgDBBrx {

class VelIncrementalCompileOperation;

/// Process-wide registry of the host's views by name: a `osgViewer::Viewer`, which is a view itself, or the
/// views of a `osgViewer::CompositeViewer`. It observes them. One that is held by `osg::ref_ptr` may die
/// registered: its name is free then. One on the stack is unregistered before it dies.
///
/// Any thread may call it. A view is asked for a redraw from the calling thread, and cannot die meanwhile; an
/// override of `requestRedraw` must not lock an observer of the view.
class VEL_OSGDB_BRX_EXPORT PCViewerManager
{
public:
    static PCViewerManager* getInstance();

    PCViewerManager(const PCViewerManager&) = delete;
    PCViewerManager& operator=(const PCViewerManager&) = delete;

    /// Stores the viewer unless the name is taken; an existing entry is kept. Always true.
    bool registerViewer(osgViewer::Viewer* viewer, std::string name);

    /// The same for a view of any viewer; the two share their names.
    bool registerView(osgViewer::View* view, std::string name);

    /// Frees a name, whichever way it was registered. Always true.
    bool unRegisterViewer(std::string name);

    /// The viewer stored under the name, or null; null too for a view of a composite viewer. It lives as long
    /// as the host lets it.
    osgViewer::Viewer* getViewer(std::string name);

    /// The view stored under the name, which may be a viewer; or null.
    osgViewer::View* getView(std::string name);

    /// Asks the view stored under the name for a redraw, while it cannot be unregistered. False when there is
    /// none.
    bool requestRedraw(const std::string& name);

    /// Asks every registered view for a redraw.
    void requestRedraw();

    /// Asks the registered views of one viewer for a redraw: one that draws on demand sees cells come in only
    /// so. The viewer itself is not touched. Null is ignored.
    void requestRedraw(const osgViewer::ViewerBase* viewer);

    /// The compile operation of the viewer of the view stored under the name, with the reference taken while
    /// the view cannot be unregistered; null when there is none of this library.
    osg::ref_ptr<VelIncrementalCompileOperation> acquireCompileOperation(const std::string& name);

private:
    /// Views are neither held, which could make another thread their last owner, nor looked at once they die.
    struct Entry
    {
        osgViewer::View* view = nullptr;
        osg::ref_ptr<osg::ObserverSet> observers; ///< of the view: its mutex keeps the view from dying
    };
    using Visitor = std::function<void(osgViewer::View&)>;

    PCViewerManager() = default;
    ~PCViewerManager() = default;

    static bool visit(const Entry& entry, const Visitor& visitor);
    bool visit(const std::string& name, const Visitor& visitor);

    VelOsgUtils::SpinLock _lock; ///< taken before the mutex of a view's observers
    std::map<std::string, Entry> _entries VEL_GUARDED_BY(_lock);
};

} // namespace VelOsgDBBrx
