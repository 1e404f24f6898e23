#include "loading/OctreeViews.h"

#include <algorithm>
#include <mutex>

using VelOsgUtils::CameraState;
using VelOsgUtils::FrameClock;

namespace {

std::atomic<uint64_t> theRevision{0};

} // namespace

bool OctreeViews::note(const osg::Camera& camera, const CameraState& state, const osg::Matrixd& model,
                       FrameClock& clock)
{
    const std::lock_guard<VelOsgUtils::SpinLock> lock(_lock);
    const auto found = std::find_if(_notes.begin(), _notes.end(),
                                    [&](const Note& note) { return note.view.camera == &camera; });
    if (found == _notes.end()) {
        _notes.push_back({{&camera, state}, model, &clock, clock.frame()});
        _noted = true;
        ++theRevision;
        return false;
    }
    Note& note = *found;
    const bool moved = note.model != model && note.view.state.view == state.view;
    const bool drawn = note.clock == &clock && clock.isDrawn(note.frame);
    if (!drawn || !showTheSame(note.view.state, state)) ++theRevision;
    note = {{&camera, state}, model, &clock, clock.frame()};
    return moved;
}

void OctreeViews::collect(std::vector<View>& views)
{
    const std::lock_guard<VelOsgUtils::SpinLock> lock(_lock);
    _notes.erase(std::remove_if(_notes.begin(), _notes.end(),
                                [](const Note& note) { return !note.clock->isDrawn(note.frame); }),
                 _notes.end());
    for (const Note& note : _notes)
        views.push_back(note.view);
}

uint64_t OctreeViews::revision()
{
    return theRevision;
}
