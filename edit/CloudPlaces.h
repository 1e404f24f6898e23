#pragma once

#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Matrixd>
#include <osg/observer_ptr>

#include <map>
#include <vector>

/// Where clouds stood in the world when an edit was asked for, so that it means the same whenever a worker
/// comes to it. Filled by the one who asks, on a thread that may read the scene.
class CloudPlaces
{
public:
    void note(OctreeInfo& octree);

    /// Forgets what was noted before.
    void note(const std::vector<osg::observer_ptr<OctreeInfo>>& octrees);

    /// Local to world; of a cloud that was not noted, where the last frame had it.
    osg::Matrixd of(OctreeInfo& octree) const;

private:
    struct Place
    {
        osg::observer_ptr<OctreeInfo> octree; ///< another one may come to the address of one that is gone
        osg::Matrixd localToWorld;
    };
    std::map<const OctreeInfo*, Place> _places;
};
