#pragma once

#include <VelBrx/StoreStatistics.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/BoundingBox>

#include <vector>

/// Where a store has nearly all of its points: across the ground by the points of its coarse cells, which lie
/// spread over all of it and are read here, in height by `elevation`. World coordinates.
osg::BoundingBoxd bulkOfPoints(const OctreeInfo& octree, const VelBrx::AttributeRange& elevation);

/// The part of a survey's bounds that is worth a place in its first view: without noise far off from the
/// bulk of its points in any direction. World coordinates.
osg::BoundingBoxd boundsOfMost(const osg::BoundingBoxd& bounds, const osg::BoundingBoxd& bulk);

/// Which surveys belong into one picture with the survey `first`: those that are not so far from it, and from
/// each other, that they would be specks. Of each survey the bounds, world coordinates.
std::vector<bool> inOnePicture(const std::vector<osg::BoundingBoxd>& surveys, size_t first);
