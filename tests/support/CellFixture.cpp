#include "tests/support/CellFixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

std::filesystem::path makeFolder()
{
    std::string name = (std::filesystem::temp_directory_path() / "velbrx-cell-XXXXXX").string();
    if (!mkdtemp(name.data())) ADD_FAILURE() << "no temporary folder";
    return name;
}

std::string writeFile(const std::filesystem::path& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path.string();
}

} // namespace

void TestPoint::pack(uint8_t* record) const
{
    const auto put = [record](int at, auto value) { std::memcpy(record + at, &value, sizeof value); };
    put(0, x);
    put(4, y);
    put(8, z);
    put(12, intensity);
    put(14, static_cast<uint8_t>(returnNumber | numberOfReturns << 4));
    put(15, flags);
    put(16, classCode);
    put(17, userData);
    put(18, scanAngle);
    put(20, sourceId);
    put(22, gpsTime);
    put(30, red);
    put(32, green);
    put(34, blue);
}

CellFixture::CellFixture(const std::vector<TestPoint>& points, const osg::Vec3d& offset,
                         const osg::Vec3d& scale)
    : octree(new OctreeInfo), _folder(makeFolder()), _count(static_cast<int64_t>(points.size()))
{
    std::vector<uint8_t> bytes(static_cast<size_t>(kPointDataStart + _count * 36), 0xEE);
    for (size_t i = 0; i < points.size(); ++i)
        points[i].pack(bytes.data() + kPointDataStart + i * 36);
    octree->pointPath = writeFile(_folder / "points", bytes);
    octree->pointFile = std::make_unique<VelBrx::File>(octree->pointPath.c_str());
    octree->pointDataStart = kPointDataStart;
    octree->offset = offset;
    octree->scale = scale;
}

CellFixture::~CellFixture()
{
    std::error_code ignored;
    std::filesystem::remove_all(_folder, ignored);
}

void CellFixture::writeNormals(const std::vector<osg::Vec4f>& normals)
{
    std::vector<uint8_t> bytes(16 + normals.size() * 16, 0);
    std::memcpy(bytes.data() + 16, normals.data(), normals.size() * 16);
    octree->normalsPath = writeFile(_folder / "points.normals", bytes);
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
