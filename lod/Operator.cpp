#include "lod/Operator.h"

#include "lod/PointLoadManager.h"

#include <VelOsgDBBrx/CellData.h>

RegisterOp::RegisterOp(OctreeInfo* octree, PointLoadManager* manager) : _octree(octree), _manager(manager) {}

void RegisterOp::operator()()
{
    osg::ref_ptr<OctreeInfo> octree;
    osg::ref_ptr<PointLoadManager> manager;
    if (_octree.lock(octree) && _manager.lock(manager)) manager->insertOctree(octree);
}

UnRegisterOp::UnRegisterOp(OctreeInfo* octree, PointLoadManager* manager) : _octree(octree), _manager(manager)
{
}

void UnRegisterOp::operator()()
{
    osg::ref_ptr<OctreeInfo> octree;
    osg::ref_ptr<PointLoadManager> manager;
    if (_octree.lock(octree) && _manager.lock(manager)) manager->eraseOctree(octree);
}

OctreeVisiableOp::OctreeVisiableOp(OctreeInfo* octree, bool visible) : _octree(octree), _visible(visible) {}

void OctreeVisiableOp::operator()()
{
    osg::ref_ptr<OctreeInfo> octree;
    if (_octree.lock(octree))
        octree->visibility = _visible ? OctreeInfo::VISIBLE : OctreeInfo::HIDDEN_NOT_CLEARED;
}

MaxNumPointOp::MaxNumPointOp(uint64_t maximum, PointLoadManager* manager)
    : _maximum(maximum), _manager(manager)
{
}

void MaxNumPointOp::operator()()
{
    osg::ref_ptr<PointLoadManager> manager;
    if (_manager.lock(manager)) manager->applyMaxNumOfPointCloud(_maximum);
}

FilterPlaneOp::FilterPlaneOp(std::vector<osg::Vec4d> planes, int planesPerGroup, PointLoadManager* manager)
    : _planes(std::move(planes)), _planesPerGroup(planesPerGroup), _manager(manager)
{
}

void FilterPlaneOp::operator()()
{
    osg::ref_ptr<PointLoadManager> manager;
    if (_manager.lock(manager)) manager->applyFilterPlanes(std::move(_planes), _planesPerGroup);
}
