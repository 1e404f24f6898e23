#include "edit/CloudPlaces.h"

#include "lod/WorldPlace.h"

void CloudPlaces::note(OctreeInfo& octree)
{
    _places[&octree] = {&octree, placeInWorld(octree)};
}

void CloudPlaces::note(const std::vector<osg::observer_ptr<OctreeInfo>>& octrees)
{
    _places.clear();
    for (const osg::observer_ptr<OctreeInfo>& observed : octrees) {
        osg::ref_ptr<OctreeInfo> octree;
        if (observed.lock(octree)) note(*octree);
    }
}

osg::Matrixd CloudPlaces::of(OctreeInfo& octree) const
{
    const auto noted = _places.find(&octree);
    if (noted != _places.end() && noted->second.octree.valid()) return noted->second.localToWorld;
    const VelThreads::Lock lock(octree.mutex);
    return octree.transform;
}
