#pragma once

#include <VelOsgUtils/Export.h>
#include <VelThreads/Mutex.h>

#include <osg/Group>
#include <osg/OperationThread>
#include <osg/observer_ptr>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <utility>
#include <vector>

namespace VelOsgUtils {

/// Takes nodes out of the scene on the thread that owns it. It is an update operation of the viewer
/// (`osgViewer::ViewerBase::addUpdateOperation`): removals happen in the update traversal, never on a draw or
/// worker thread, a bounded number a frame so that no frame is spoilt.
///
/// Threads: `add`, `withdraw`, `take` and the queries from any thread; `operator()` and `finish` on the
/// thread of the update traversal.
class VEL_OSG_UTILS_EXPORT DecrementalCompileOperation : public osg::Operation
{
public:
    DecrementalCompileOperation();

    /// Queues the removal of `node` from `group`. A null group only releases the node, at the same pace and
    /// place; a null node is ignored. The node is held until it has been removed, the group is not held at
    /// all. A removal that is queued already moves to the end of the queue.
    void add(osg::Group* group, osg::Node* node);

    /// Takes back the pending removal of `node` from `group`. True when there was one: the node is then where
    /// it was. False means that there was none or that it is being done now; whatever adds the node to the
    /// group in the update traversal comes after it.
    bool withdraw(osg::Group* group, osg::Node* node);

    /// A removal that was given up: nothing has been taken from the group.
    struct Removal
    {
        osg::observer_ptr<osg::Group> group;
        osg::ref_ptr<osg::Node> node;
    };

    /// Gives up every pending removal and hands them out, in their order. One that is being done now is
    /// not among them.
    std::vector<Removal> take();

    /// Number of removals not yet begun.
    size_t pending() const;

    /// Largest number of removals in one frame, 256 at first. 0 counts as 1.
    void setMaximumPerFrame(size_t count);
    size_t getMaximumPerFrame() const;

    /// Time after which a frame begins no further removal, in seconds; 0.002 at first.
    void setMaximumTimePerFrame(double seconds);
    double getMaximumTimePerFrame() const;

    /// Does the removals of one frame, at least one.
    void operator()(osg::Object* viewer) override;

    /// Does every pending removal.
    void finish();

protected:
    ~DecrementalCompileOperation() override;

private:
    using Key = std::pair<const osg::Group*, const osg::Node*>;
    struct Entry
    {
        Key key;
        uint64_t ticket; ///< the removal counts only while `_tickets` holds this under its key
        Removal removal;
    };

    bool popNext(Removal& removal) VEL_REQUIRES(_mutex);
    bool removeNext();

    mutable VelThreads::Mutex _mutex;
    std::deque<Entry>
        _queue VEL_GUARDED_BY(_mutex); ///< in the order of the calls to add, withdrawn ones included
    std::map<Key, uint64_t> _tickets VEL_GUARDED_BY(_mutex); ///< the pending removals
    uint64_t _lastTicket VEL_GUARDED_BY(_mutex) = 0;
    size_t _maximumPerFrame VEL_GUARDED_BY(_mutex) = 256;
    double _maximumTimePerFrame VEL_GUARDED_BY(_mutex) = 0.002;
};

} // namespace VelOsgUtils
