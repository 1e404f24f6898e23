#pragma once

#include <VelBrx/GroundSpread.h>
#include <VelBrx/StoreStatistics.h>
#include <VelOsgDBBrx/OpenCloud.h>

#include <osg/BoundingBox>

#include <vector>

/// The box of nearly all points of a store, of its parts across the ground and in height. World coordinates.
osg::BoundingBoxd bulkOf(const VelBrx::GroundBox& box, const VelBrx::AttributeRange& elevation);

/// The same of a store that is open, whose coarse cells are read here.
osg::BoundingBoxd bulkOfPoints(const VelOsgDBBrx::OpenedCloud& opened);

/// The part of a survey's bounds that is worth a place in its first view: without noise far off from the
/// bulk of its points in any direction. World coordinates.
osg::BoundingBoxd boundsOfMost(const osg::BoundingBoxd& bounds, const osg::BoundingBoxd& bulk);

/// Which surveys belong into one picture with the survey `first`: those that are not so far from it, and from
/// each other, that they would be specks. Of each survey the bounds, world coordinates.
std::vector<bool> inOnePicture(const std::vector<osg::BoundingBoxd>& surveys, size_t first);
