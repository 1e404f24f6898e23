#include <VelOsgUtils/DecrementalCompileOperation.h>

#include "osgutils/WakeSignal.h"

#include <osg/Timer>

#include <algorithm>

namespace VelOsgUtils {

DecrementalCompileOperation::DecrementalCompileOperation()
    : osg::Operation("DecrementalCompileOperation", true)
{
}

DecrementalCompileOperation::~DecrementalCompileOperation() = default;

void DecrementalCompileOperation::add(osg::Group* group, osg::Node* node)
{
    if (!node) return;
    {
        const VelThreads::Lock lock(_mutex);
        const Key key(group, node);
        _tickets[key] = ++_lastTicket;
        _queue.push_back({key, _lastTicket, {group, node}});
    }
    WakeSignal::raise();
}

bool DecrementalCompileOperation::withdraw(osg::Group* group, osg::Node* node)
{
    const VelThreads::Lock lock(_mutex);
    return _tickets.erase(Key(group, node)) > 0;
}

std::vector<DecrementalCompileOperation::Removal> DecrementalCompileOperation::take()
{
    std::vector<Removal> removals;
    Removal removal;
    const VelThreads::Lock lock(_mutex);
    while (popNext(removal))
        removals.push_back(std::move(removal));
    return removals;
}

size_t DecrementalCompileOperation::pending() const
{
    const VelThreads::Lock lock(_mutex);
    return _tickets.size();
}

void DecrementalCompileOperation::setMaximumPerFrame(size_t count)
{
    const VelThreads::Lock lock(_mutex);
    _maximumPerFrame = std::max<size_t>(count, 1);
}

size_t DecrementalCompileOperation::getMaximumPerFrame() const
{
    const VelThreads::Lock lock(_mutex);
    return _maximumPerFrame;
}

void DecrementalCompileOperation::setMaximumTimePerFrame(double seconds)
{
    const VelThreads::Lock lock(_mutex);
    _maximumTimePerFrame = seconds;
}

double DecrementalCompileOperation::getMaximumTimePerFrame() const
{
    const VelThreads::Lock lock(_mutex);
    return _maximumTimePerFrame;
}

void DecrementalCompileOperation::operator()(osg::Object*)
{
    const osg::ElapsedTime timer;
    const size_t maximumCount = getMaximumPerFrame();
    const double maximumTime = getMaximumTimePerFrame();
    for (size_t count = 0; count < maximumCount && removeNext(); ++count) {
        if (timer.elapsedTime() >= maximumTime) return;
    }
}

void DecrementalCompileOperation::finish()
{
    while (removeNext()) {
    }
}

/// False when no removal is pending.
bool DecrementalCompileOperation::popNext(Removal& removal)
{
    while (!_queue.empty()) {
        Entry entry = std::move(_queue.front());
        _queue.pop_front();
        const auto ticket = _tickets.find(entry.key);
        if (ticket == _tickets.end() || ticket->second != entry.ticket) continue;
        _tickets.erase(ticket);
        removal = std::move(entry.removal);
        return true;
    }
    return false;
}

/// False when no removal is pending. The scene is changed, and references are dropped, outside the lock.
bool DecrementalCompileOperation::removeNext()
{
    Removal removal;
    {
        const VelThreads::Lock lock(_mutex);
        if (!popNext(removal)) return false;
    }
    osg::ref_ptr<osg::Group> group;
    if (removal.group.lock(group)) group->removeChild(removal.node);
    return true;
}

} // namespace VelOsgUtils
