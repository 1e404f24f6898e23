#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/GraphicsContext>
#include <osg/ref_ptr>

namespace VelOsgUtils {
class DecrementalCompileOperation;
}

namespace osgViewer {
class View;
}

namespace VelOsgDBBrx {

class IPointLoadManager;
class IPointCategoryManager;
class VelIncrementalCompileOperation;

/// The services that page, compile and edit point clouds, one set a graphics context. A host registers each
/// context once before it shows point clouds in it, before or after its viewer is realized, and unregisters
/// it when the context goes away.
///
/// The services work through the viewer that owns the context: its incremental compile operation becomes the
/// context's (a viewer of several contexts has the operation of the first one), and an update operation is
/// added to it. Both happen in the event traversal of the first frame in which a point cloud is in the scene;
/// see `attachView`. They leave the viewer in its first update traversal after the context was unregistered,
/// and a compile operation of the host's own that they replaced is the viewer's again.
///
/// Threads: any, except `attachView`. Operations of the host that a manager's thread runs may call it, but
/// not unregister their own context. At process exit every thread that is still running is joined.
class VEL_OSGDB_BRX_EXPORT GlobalObject
{
public:
    /// Creates and starts the context's services, or finds them; the registry owns the result. Null for null.
    static IPointLoadManager* registerGraphicsContext(osg::GraphicsContext* gc);

    /// Stops the context's services, joins their threads and releases them. Its clouds are free for another
    /// context, whatever becomes of its viewer. Unknown contexts are ignored.
    static void unRegisterGraphicsContext(osg::GraphicsContext* gc);

    /// Brings the services of the view's registered contexts to its viewer, where they are not there yet.
    /// Point clouds in the scene call it in every frame; a host calls it only where it runs no event
    /// traversal, from the thread of the viewer's frames, between or before them. Null is ignored. True when
    /// a context of the view is registered.
    static bool attachView(osgViewer::View* view);

    /// The context's load manager; null when the context is not registered. It lives until the context is
    /// unregistered.
    static IPointLoadManager* getPLM(osg::GraphicsContext* gc);

    /// The managers with a reference of the caller's own: for threads that do not know when the context is
    /// unregistered. Null when it is not registered.
    static osg::ref_ptr<IPointLoadManager> acquirePLM(osg::GraphicsContext* gc);
    static osg::ref_ptr<IPointCategoryManager> acquirePCM(osg::GraphicsContext* gc);

    /// \name Only for a registered context.
    /// @{
    static IPointCategoryManager* getPCM(osg::GraphicsContext* gc);
    static VelIncrementalCompileOperation* getIncrementalCompileOperation(osg::GraphicsContext* gc);
    static VelOsgUtils::DecrementalCompileOperation* getDecrementalCompileOperation(osg::GraphicsContext* gc);

    /// The point budget of a pass. A new value holds from the manager's next turn on, about a millisecond
    /// later while its thread runs; the getter gives the old one until then.
    static void setMaxNumOfPointCloud(osg::GraphicsContext* gc, unsigned int n);
    static unsigned int getMaxNumOfPointCloud(osg::GraphicsContext* gc);

    static void setMouseDiluteNum(osg::GraphicsContext* gc, unsigned int n);
    static int getMouseDiluteNum(osg::GraphicsContext* gc);
    /// @}
};

} // namespace VelOsgDBBrx
