#pragma once

#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/Node>

#include <optional>

/// Where a node is in the world, local to world: by the nodes above it as they are at this moment, drawn
/// or not. Call it where nobody changes these nodes meanwhile.
///
/// The world belongs to the camera above the node, if there is one: of the last camera on the path that does
/// not depend on what is above it. Of several paths the first counts: of those through `above`, a node, of
/// these of those through `camera`, and of these of the ones that are switched on, in each case only if there
/// are any. Node masks do not hide a path otherwise.
///
/// What stays in place before the eye, below a transform of the absolute reference frame, has a place in the
/// world for its camera alone: the one above it, or else `camera`. None without one.
std::optional<osg::Matrixd> placeInWorld(osg::Node& node, const osg::Node* above, const osg::Camera* camera);

/// The same of the cloud that shows an octree. The octree's `transform`, which the last frame left, where the
/// cloud is in no scene or has no place of its own.
osg::Matrixd placeInWorld(OctreeInfo& octree);
