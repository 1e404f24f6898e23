#pragma once

#include <VelOsgUtils/Export.h>
#include <VelThreads/Mutex.h>

#include <osg/Object>
#include <osg/Observer>
#include <osg/Referenced>
#include <osg/ref_ptr>

#include <atomic>
#include <cstdint>

namespace VelOsgUtils {

/// Counts the frames of the viewer that draws a graphics context. With it what was drawn in a frame can be
/// told from what is drawn still: a camera that has gone, rests masked or lost its window is left out of the
/// viewer's next frame.
///
/// Threads: `tick` on the thread of the update traversal; the rest from any thread.
class VEL_OSG_UTILS_EXPORT FrameClock : public osg::Referenced
{
public:
    /// The update traversal of a frame of `viewer`. Further ones of the same frame number do not count.
    void tick(osg::Object& viewer, unsigned frameNumber);

    /// Nothing counts as drawn from now on, until the next tick.
    void stop();

    /// The frame that is being drawn, or was drawn last.
    uint64_t frame() const { return _frame; }

    /// What was drawn in `frame` has not been left out since, and the viewer lives. All that was drawn in the
    /// frame before counts until the next one begins: its cull traversals may not have come by yet.
    bool isDrawn(uint64_t frame) const;

    /// Whether the last tick was this viewer's. Null is no viewer.
    bool isOf(const osg::Referenced* viewer) const;

protected:
    ~FrameClock() override;

private:
    std::atomic<uint64_t> _frame{0};
    std::atomic<bool> _stopped{false};

    mutable VelThreads::Mutex _mutex;
    osg::ref_ptr<osg::ObserverSet>
        _viewer VEL_GUARDED_BY(_mutex); ///< outlives the viewer, and knows when that dies
    unsigned _frameNumber VEL_GUARDED_BY(_mutex) = 0;
};

} // namespace VelOsgUtils
