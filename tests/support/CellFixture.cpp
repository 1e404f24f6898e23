#include "tests/support/CellFixture.h"

#include <cstring>

CellFixture::CellFixture(const std::vector<TestPoint>& points, const osg::Vec3d& offset,
                         const osg::Vec3d& scale)
    : octree(new OctreeInfo), _count(static_cast<int64_t>(points.size()))
{
    std::vector<uint8_t> bytes(static_cast<size_t>(kPointDataStart + _count * 36), 0xEE);
    for (size_t i = 0; i < points.size(); ++i)
        points[i].pack(bytes.data() + kPointDataStart + i * 36);
    octree->pointPath = _folder.write("points", bytes);
    octree->pointFile = std::make_unique<VelBrx::File>(octree->pointPath.c_str());
    octree->pointDataStart = kPointDataStart;
    octree->offset = offset;
    octree->scale = scale;
}

void CellFixture::writeNormals(const std::vector<osg::Vec4f>& normals)
{
    std::vector<uint8_t> bytes(16 + normals.size() * 16, 0);
    std::memcpy(bytes.data() + 16, normals.data(), normals.size() * 16);
    octree->normalsPath = _folder.write("points.normals", bytes);
    octree->normalsFile = std::make_unique<VelBrx::File>(octree->normalsPath.c_str());
}

osg::ref_ptr<CellData> CellFixture::cell(const std::vector<VelBrx::Segment>& segments,
                                         const std::string& identifier) const
{
    VelBrx::CellWithSegment record{};
    for (int axis = 0; axis < 3; ++axis) {
        record.size[axis] = 100;
        record.center[axis] = octree->offset[axis];
    }
    std::strncpy(record.identifier, identifier.c_str(), sizeof record.identifier - 1);
    record.segments = segments;
    for (const VelBrx::Segment& segment : segments)
        record.pointCount += static_cast<uint32_t>(segment.count);
    osg::ref_ptr<CellData> cell = new CellData(record);
    cell->octree = octree.get();
    return cell;
}

osg::ref_ptr<CellData> CellFixture::wholeCell(const std::string& identifier) const
{
    return cell({{0, _count}}, identifier);
}
