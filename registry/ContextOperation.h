#pragma once

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>
#include <VelOsgUtils/ScreenCaptureTool.h>

#include <osg/OperationThread>
#include <osg/ref_ptr>

#include <atomic>

namespace osgViewer {
class ViewerBase;
}

/// What a context's services do in each update traversal of its viewer: watch the main camera, take cells out
/// of the scene, and merge compiled ones where the viewer itself does not. Once retired it takes all of this
/// off the viewer again.
///
/// Threads: `retire` from any thread; the rest on the thread of the update traversal.
class ContextOperation : public osg::Operation
{
public:
    ContextOperation(VelOsgDBBrx::VelIncrementalCompileOperation* incremental,
                     VelOsgUtils::DecrementalCompileOperation* decremental,
                     VelOsgUtils::ScreenCaptureTool* capture);

    /// Adds this to a viewer's update operations, and the compile operation to the context. Not from within
    /// an update operation.
    void install(osgViewer::ViewerBase& viewer, osg::GraphicsContext& context);

    /// Makes the compile operation the viewer's unless that has one of another context. One of the host's own
    /// is put by until this leaves the viewer, and what waits in it is taken over.
    void provideCompileOperation(osgViewer::ViewerBase& viewer);

    void operator()(osg::Object* viewer) override;

    /// The next update traversal is the last one. What the context draws does not count from now on.
    void retire();

protected:
    ~ContextOperation() override = default;

private:
    void dropClosedContexts(osgViewer::ViewerBase& viewer);
    void uninstall(osgViewer::ViewerBase* viewer);

    osg::ref_ptr<VelOsgDBBrx::VelIncrementalCompileOperation> _incremental;
    osg::ref_ptr<VelOsgUtils::DecrementalCompileOperation> _decremental;
    osg::ref_ptr<VelOsgUtils::ScreenCaptureTool> _capture;
    osg::ref_ptr<osgUtil::IncrementalCompileOperation> _hosts; ///< what `_incremental` replaces
    std::atomic<bool> _retired{false};
};
