#pragma once

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/Export.h>

#include <osg/Node>
#include <osg/ref_ptr>

namespace VelOsgDBBrx {

/// Turns one octree cell into a drawable leaf.
class VEL_OSGDB_BRX_EXPORT LasReaderWriter
{
public:
    /// A new leaf with one geometry that holds the cell's points, or null when the cell is null, has no
    /// segments or no points, or its octree is gone. The leaf has no reference yet: the caller's
    /// `osg::ref_ptr` owns it. A segment that cannot be mapped contributes no points; the geometry's
    /// `osg::DrawArrays` states the declared number all the same, and draws what the arrays hold. Classes
    /// that were edited and are not written yet count. Any thread may call it, also one that holds the
    /// store's file: no lock that another call waits for is held while the cell is read.
    static osg::Node* read(osg::ref_ptr<CellData> cell);
};

} // namespace VelOsgDBBrx
