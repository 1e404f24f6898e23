#pragma once

#include "loading/CellData.h"

#include <VelBrx/CellWithSegment.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Vec3d>
#include <osg/Vec4f>
#include <osg/ref_ptr>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// One point as a test states it; `pack` makes the 36-byte record of a store.
struct TestPoint
{
    int32_t x = 0, y = 0, z = 0; ///< steps of the octree's scale
    uint16_t intensity = 0;
    uint8_t returnNumber = 1, numberOfReturns = 1;
    uint8_t flags = 0; ///< byte 15: classification flags, channel, direction, edge
    uint8_t classCode = 0, userData = 0;
    int16_t scanAngle = 0;
    uint16_t sourceId = 0;
    double gpsTime = 0;
    uint16_t red = 0, green = 0, blue = 0;

    void pack(uint8_t* record) const;
};

/// An octree over a file of point records that a test writes itself; the file goes away with the object.
class CellFixture
{
public:
    static constexpr int64_t kPointDataStart = 227; ///< odd, so that nothing in a record is aligned

    explicit CellFixture(const std::vector<TestPoint>& points, const osg::Vec3d& offset = osg::Vec3d(),
                         const osg::Vec3d& scale = osg::Vec3d(0.001, 0.001, 0.001));
    ~CellFixture();
    CellFixture(const CellFixture&) = delete;
    CellFixture& operator=(const CellFixture&) = delete;

    /// Writes the normals companion file and opens it; one vector a point.
    void writeNormals(const std::vector<osg::Vec4f>& normals);

    /// A cell of the octree that holds the given runs of points.
    osg::ref_ptr<CellData> cell(const std::vector<VelBrx::Segment>& segments,
                                const std::string& identifier = "cell") const;

    /// The cell that holds every point.
    osg::ref_ptr<CellData> wholeCell(const std::string& identifier = "cell") const;

    osg::ref_ptr<OctreeInfo> octree;

private:
    std::filesystem::path _folder;
    int64_t _count;
};
