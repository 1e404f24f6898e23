#pragma once

#include <VelOsgUtils/Export.h>

#include <osg/Group>
#include <osg/OperationThread>
#include <osg/observer_ptr>

#include <cstddef>
#include <deque>
#include <mutex>

namespace VelOsgUtils {

/// Takes nodes out of the scene on the thread that owns it. It is an update operation of the viewer
/// (`osgViewer::ViewerBase::addUpdateOperation`): removals happen in the update traversal, never on a draw or
/// worker thread, a bounded number a frame so that no frame is spoilt.
///
/// Threads: `add`, `withdraw` and `pending` from any thread; `operator()` on the thread of the update
/// traversal.
class VEL_OSG_UTILS_EXPORT DecrementalCompileOperation : public osg::Operation
{
public:
    DecrementalCompileOperation();

    /// Queues the removal of `node` from `group`. A null group only releases the node, at the same pace and
    /// place; a null node is ignored. The node is held until it has been removed, the group is not held at
    /// all.
    void add(osg::Group* group, osg::Node* node);

    /// Takes back the pending removals of `node`. True when there was one: the node is then still where it
    /// was.
    bool withdraw(osg::Node* node);

    /// Number of removals not yet done.
    size_t pending() const;

    /// Largest number of removals in one frame, 256 at first. 0 counts as 1.
    void setMaximumPerFrame(size_t count);
    size_t getMaximumPerFrame() const;

    /// Does the removals of one frame.
    void operator()(osg::Object* viewer) override;

protected:
    ~DecrementalCompileOperation() override;

private:
    struct Removal
    {
        osg::observer_ptr<osg::Group> group;
        osg::ref_ptr<osg::Node> node;
    };

    mutable std::mutex _mutex;     ///< guards the members below
    std::deque<Removal> _removals; ///< in the order of the calls to add
    size_t _maximumPerFrame = 256;
};

} // namespace VelOsgUtils
