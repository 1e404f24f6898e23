#include "loading/OctreeViews.h"

#include "osgutils/WakeSignal.h"

#include <algorithm>

using VelOsgUtils::CameraState;
using VelOsgUtils::FrameClock;

namespace {

std::atomic<uint64_t> theRevision{0};

void noteChange()
{
    ++theRevision;
    VelOsgUtils::WakeSignal::raise();
}

} // namespace

bool OctreeViews::note(const osg::Camera& camera, const osg::NodePath& path, const CameraState& state,
                       const osg::Matrixd& model, FrameClock& clock)
{
    const VelThreads::Lock lock(_lock);
    const auto found = std::find_if(_notes.begin(), _notes.end(), [&](const Note& note) {
        return note.view.camera == &camera && note.path == path;
    });
    if (found == _notes.end()) {
        _notes.push_back({{&camera, state, model}, path, &clock, clock.frame()});
        _noted = true;
        noteChange();
        return false;
    }
    Note& note = *found;
    const bool moved = note.view.model != model && note.view.state.view == state.view;
    const bool drawn = note.clock == &clock && clock.isDrawn(note.frame);
    if (!drawn || !showTheSame(note.view.state, state)) noteChange();
    note.view = {&camera, state, model};
    note.clock = &clock;
    note.frame = clock.frame();
    return moved;
}

void OctreeViews::collect(std::vector<View>& views)
{
    const VelThreads::Lock lock(_lock);
    _notes.erase(std::remove_if(_notes.begin(), _notes.end(),
                                [](const Note& note) { return !note.clock->isDrawn(note.frame); }),
                 _notes.end());
    const size_t first = views.size();
    for (const Note& note : _notes) {
        // Several passes of one camera, as in eye-dome lighting, meet the octree on several paths.
        const bool known = std::any_of(
            views.begin() + static_cast<std::ptrdiff_t>(first), views.end(), [&note](const View& view) {
                return view.camera == note.view.camera && view.model == note.view.model;
            });
        if (!known) views.push_back(note.view);
    }
}

bool OctreeViews::isDrawn(const FrameClock& clock)
{
    const VelThreads::Lock lock(_lock);
    return std::any_of(_notes.begin(), _notes.end(), [&clock](const Note& note) {
        return note.clock == &clock && clock.isDrawn(note.frame);
    });
}

uint64_t OctreeViews::revision()
{
    return theRevision;
}
