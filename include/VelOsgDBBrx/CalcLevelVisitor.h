#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/NodeVisitor>

#include <map>

namespace VelOsgDBBrx {

/// Counts, by octree level, the points that are in the scene under a node, over all point clouds that it
/// meets. A host chooses the level down to which a thinned display draws from the result. A second visit adds
/// to the counts of the first. Call it where the scene does not change: between frames or in the update
/// traversal.
class VEL_OSGDB_BRX_EXPORT CalcLevelVisitor : public osg::NodeVisitor
{
public:
    CalcLevelVisitor();

    void apply(osg::Node& node) override;

    /// Points by level. A level of which cells were in the scene once is listed, with 0 points.
    std::map<int, int> getLevelWithNum() const { return _points; }

private:
    std::map<int, int> _points;
};

} // namespace VelOsgDBBrx
