#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/GraphicsContext>

namespace VelOsgUtils {
class DecrementalCompileOperation;
}

namespace VelOsgDBBrx {

class IPointLoadManager;
class IPointCategoryManager;
class VelIncrementalCompileOperation;

/// The services that page, compile and edit point clouds, one set a graphics context. A host registers each
/// context once before it shows point clouds in it, before or after its viewer is realized, and unregisters
/// it when the context goes away. Any thread may call these functions.
class VEL_OSGDB_BRX_EXPORT GlobalObject
{
public:
    /// Creates and starts the context's services, or finds them; the registry owns the result.
    static IPointLoadManager* registerGraphicsContext(osg::GraphicsContext* gc);

    /// Stops the context's services, joins their threads and releases them. Unknown contexts are ignored.
    static void unRegisterGraphicsContext(osg::GraphicsContext* gc);

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
