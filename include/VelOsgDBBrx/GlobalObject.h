#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/GraphicsContext>

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
/// context's (a viewer of several contexts has that of the first one), and an update operation is added to
/// it. Both happen in the event traversal of the first frame in which a point cloud is in the scene; see
/// `attachView`. They leave the viewer in its first update traversal after the context was unregistered.
///
/// Threads: any, but for `attachView`. At process exit every thread that is still running is joined.
class VEL_OSGDB_BRX_EXPORT GlobalObject
{
public:
    /// Creates and starts the context's services, or finds them; the registry owns the result.
    static IPointLoadManager* registerGraphicsContext(osg::GraphicsContext* gc);

    /// Stops the context's services, joins their threads and releases them. Unknown contexts are ignored.
    static void unRegisterGraphicsContext(osg::GraphicsContext* gc);

    /// Brings the services of the view's registered contexts to its viewer, where they are not there yet.
    /// Point clouds in the scene call it in every frame; a host calls it only where it runs no event
    /// traversal, from the thread of the viewer's frames, between or before them. Null is ignored.
    static void attachView(osgViewer::View* view);

    /// The context's load manager; null when the context is not registered.
    static IPointLoadManager* getPLM(osg::GraphicsContext* gc);

    /// \name Only for a registered context.
    /// @{
    static IPointCategoryManager* getPCM(osg::GraphicsContext* gc);
    static VelIncrementalCompileOperation* getIncrementalCompileOperation(osg::GraphicsContext* gc);
    static VelOsgUtils::DecrementalCompileOperation* getDecrementalCompileOperation(osg::GraphicsContext* gc);
    static void setMaxNumOfPointCloud(osg::GraphicsContext* gc, unsigned int n);
    static unsigned int getMaxNumOfPointCloud(osg::GraphicsContext* gc);
    static void setMouseDiluteNum(osg::GraphicsContext* gc, unsigned int n);
    static int getMouseDiluteNum(osg::GraphicsContext* gc);
    /// @}
};

} // namespace VelOsgDBBrx
