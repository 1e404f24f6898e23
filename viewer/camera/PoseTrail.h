#pragma once

#include "viewer/camera/Pose.h"

#include <vector>

/// The poses that a picture had, to go back through and forward again.
class PoseTrail
{
public:
    /// `pose` is about to be left; what lay ahead is forgotten. The same pose is kept once.
    void leave(const Pose& pose);

    /// The pose before `now`, which lies ahead then; `now` itself where there is none.
    Pose back(const Pose& now);

    /// Likewise the pose ahead.
    Pose forward(const Pose& now);

private:
    std::vector<Pose> _behind;
    std::vector<Pose> _ahead; ///< the next one last
};
