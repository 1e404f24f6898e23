#include <VelOsgUtils/FrameClock.h>

#include "osgutils/WakeSignal.h"

#include <OpenThreads/ScopedLock>

namespace VelOsgUtils {

namespace {

/// Null when the object has died.
const osg::Referenced* observed(const osg::ObserverSet& set)
{
    OpenThreads::ScopedLock<OpenThreads::Mutex> lock(*set.getObserverSetMutex());
    return set.getObserverdObject();
}

} // namespace

FrameClock::~FrameClock() = default;

void FrameClock::tick(osg::Object& viewer, unsigned frameNumber)
{
    const VelThreads::Lock lock(_mutex);
    const osg::ref_ptr<osg::ObserverSet> set = viewer.getOrCreateObserverSet();
    const bool sameFrame = set == _viewer && frameNumber == _frameNumber && !_stopped;
    _viewer = set;
    _frameNumber = frameNumber;
    if (_stopped.exchange(false)) _frame += 2; // what was drawn before the stop does not come back
    if (sameFrame) return;
    ++_frame;
    WakeSignal::raise(); // cameras that are drawn no more drop out with it
}

void FrameClock::stop()
{
    _stopped = true;
    WakeSignal::raise();
}

bool FrameClock::isDrawn(uint64_t frame) const
{
    if (_stopped || frame + 1 < _frame) return false;
    const VelThreads::Lock lock(_mutex);
    return !_viewer || observed(*_viewer);
}

bool FrameClock::isOf(const osg::Referenced* viewer) const
{
    const VelThreads::Lock lock(_mutex);
    return viewer && _viewer && observed(*_viewer) == viewer;
}

} // namespace VelOsgUtils
