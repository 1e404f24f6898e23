#pragma once

#include <VelBrx/CellWithSegment.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Vec3d>
#include <osg/ref_ptr>

#include <functional>
#include <vector>

/// Records of a full tree of `levels` levels over a cube of `size` around `center`, `branching` of the eight
/// children in every cell (the first ones by octant), `points` points a cell. Resolution length: a hundredth
/// of the cell's edge. Key codes are no Morton codes.
std::vector<VelBrx::CellWithSegment> fullTree(unsigned levels, const osg::Vec3d& center, double size,
                                              unsigned branching = 8, int64_t points = 100);

/// An octree of these records. Its point file is open and holds nothing, so that cells load as leaves whose
/// points draw nothing.
osg::ref_ptr<OctreeInfo> handOctree(const std::vector<VelBrx::CellWithSegment>& records,
                                    const osg::Vec3d& offset = osg::Vec3d());

/// Every cell, each before its children.
void visitCells(CellData& cell, const std::function<void(CellData&)>& visit);

size_t countLoaded(const OctreeInfo& octree);
size_t countLoaded(const OctreeInfo& octree, int level);
