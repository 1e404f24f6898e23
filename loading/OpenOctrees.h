#pragma once

#include <VelBrx/FileIdentity.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/ref_ptr>

/// The octrees of this process by the files that they have open, by whatever names. Any thread may call it.

/// Makes an octree known that has its point file.
void noteOpenOctree(OctreeInfo& octree);

/// The octree that has opened the file last, of those still open; null when none is.
osg::ref_ptr<OctreeInfo> findOpenOctree(const VelBrx::FileIdentity& file);
