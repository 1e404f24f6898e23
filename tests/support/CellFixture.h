#pragma once

#include "tests/support/TempFolder.h"
#include "tests/support/TestPoint.h"

#include <VelBrx/CellWithSegment.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Vec3d>
#include <osg/Vec4f>
#include <osg/ref_ptr>

#include <cstdint>
#include <string>
#include <vector>

/// An octree over a file of point records that a test writes itself; the file goes away with the object.
class CellFixture
{
public:
    static constexpr int64_t kPointDataStart = 227; ///< odd, so that nothing in a record is aligned

    explicit CellFixture(const std::vector<TestPoint>& points, const osg::Vec3d& offset = osg::Vec3d(),
                         const osg::Vec3d& scale = osg::Vec3d(0.001, 0.001, 0.001));

    /// Writes the normals companion file and opens it; one vector a point.
    void writeNormals(const std::vector<osg::Vec4f>& normals);

    /// A cell of the octree that holds the given runs of points.
    osg::ref_ptr<CellData> cell(const std::vector<VelBrx::Segment>& segments,
                                const std::string& identifier = "cell") const;

    /// The cell that holds every point.
    osg::ref_ptr<CellData> wholeCell(const std::string& identifier = "cell") const;

    osg::ref_ptr<OctreeInfo> octree;

private:
    TempFolder _folder;
    int64_t _count;
};
