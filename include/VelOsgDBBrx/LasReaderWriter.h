#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Node>
#include <osg/ref_ptr>

class CellData;

namespace VelOsgDBBrx {

/// Turns one octree cell into a drawable leaf.
class VEL_OSGDB_BRX_EXPORT LasReaderWriter
{
public:
    /// A new leaf with one geometry that holds the cell's points, or null when the cell is null, has no
    /// segments or no points. The leaf has no reference yet: the caller's `osg::ref_ptr` owns it. A segment
    /// that cannot be mapped contributes no points. Takes no lock; any thread may call it.
    static osg::Node* read(osg::ref_ptr<CellData> cell);
};

} // namespace VelOsgDBBrx
