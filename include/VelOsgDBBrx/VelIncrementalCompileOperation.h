#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelThreads/Mutex.h>

#include <osgUtil/IncrementalCompileOperation>

#include <atomic>
#include <vector>

namespace VelOsgDBBrx {

/// The compile operation of a context: compiles new cells on the graphics thread and merges them into their
/// point cloud in the update traversal. Adds to its base a place at the front of the queue, queries, and the
/// move level. Any thread may call the members declared here.
///
/// Its defaults are made for cells of some hundred thousand points: up to 1000 objects a frame instead of 20,
/// and at least 10 ms a frame instead of 1 ms, half of it for freeing. With the base's defaults a program
/// that draws slowly takes a hundred frames to show a hundred cells. A host that wants steadier frames while
/// cells come in lowers them (`setMinimumTimeAvailableForGLCompileAndDeletePerFrame`,
/// `setMaximumNumOfObjectsToCompilePerFrame`).
class VEL_OSGDB_BRX_EXPORT VelIncrementalCompileOperation : public osgUtil::IncrementalCompileOperation
{
public:
    VelIncrementalCompileOperation();

    /// Deepest octree level that is drawn while the display is thinned; negative: nothing is drawn then. 0 at
    /// first.
    void setMoveLevel(int level);
    int getMoveLevel() const;

    /// Nothing waits to be compiled or merged.
    bool isEmpty();

    /// This very compile set waits to be compiled.
    bool find(CompileSet* compileSet);

    /// Like the base's `add`, but compiled before everything that waits already. Null is ignored.
    void pushFront(CompileSet* compileSet, bool callBuildCompileMap);

    /// Like the base's `add`, which must not run while contexts are added to the operation. Null is ignored.
    void pushBack(CompileSet* compileSet);

    /// Ends the wait for contexts that are gone: what was to be compiled for them as well is merged without.
    /// `alive` are the contexts that may still draw; it is called where contexts are added, in the update
    /// traversal.
    void keepContexts(const std::vector<osg::GraphicsContext*>& alive);

    /// Nobody compiles: `keepContexts` found all contexts gone.
    bool isAbandoned() const;

    /// The base's. Only the thread of the update traversal calls it.
    void mergeCompiledSubgraphs(const osg::FrameStamp* frameStamp);

    /// Ends the operation's work: its context drops it at the end of the next frame.
    void retire();

    void operator()(osg::GraphicsContext* context) override;

protected:
    ~VelIncrementalCompileOperation() override;

private:
    void push(CompileSet& compileSet, bool callBuildCompileMap, bool atFront);
    void stopWaitingFor(osg::GraphicsContext* context);

    VelThreads::Mutex _compileMutex VEL_ACQUIRED_BEFORE(_contextMutex); ///< held while a context compiles
    VelThreads::Mutex _contextMutex; ///< guards _drawing; taken before the queue's
    ContextSet _drawing
        VEL_GUARDED_BY(_contextMutex); ///< the contexts that have drawn; the base's own set has no lock
    std::atomic<int> _moveLevel{0};
    std::atomic<bool> _abandoned{false};
    std::atomic<bool> _retired{false};
};

} // namespace VelOsgDBBrx
