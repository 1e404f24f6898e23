#include "viewer/camera/PoseTrail.h"

#include <cstddef>

namespace {

constexpr size_t kMostPoses = 200;

/// The last pose of `from` that is not `now`, which goes onto `to`.
Pose take(std::vector<Pose>& from, std::vector<Pose>& to, const Pose& now)
{
    while (!from.empty() && from.back() == now)
        from.pop_back();
    if (from.empty()) return now;
    to.push_back(now);
    const Pose pose = from.back();
    from.pop_back();
    return pose;
}

} // namespace

void PoseTrail::leave(const Pose& pose)
{
    _ahead.clear();
    if (!_behind.empty() && _behind.back() == pose) return;
    if (_behind.size() == kMostPoses) _behind.erase(_behind.begin());
    _behind.push_back(pose);
}

Pose PoseTrail::back(const Pose& now)
{
    return take(_behind, _ahead, now);
}

Pose PoseTrail::forward(const Pose& now)
{
    return take(_ahead, _behind, now);
}
