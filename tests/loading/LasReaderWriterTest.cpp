#include "loading/CellGeometry.h"
#include "loading/CellLeaf.h"
#include "loading/ModelMatrix.h"
#include "loading/UnwrittenClasses.h"
#include "tests/support/CellFixture.h"

#include <VelOsgDBBrx/LasReaderWriter.h>

#include <gtest/gtest.h>
#include <osg/Geometry>
#include <osg/ValueObject>

#include <cstring>
#include <limits>
#include <set>

using VelOsgDBBrx::LasReaderWriter;

namespace {

struct ReadCell
{
    explicit ReadCell(osg::ref_ptr<CellData> cell) : node(LasReaderWriter::read(cell))
    {
        leaf = dynamic_cast<CellLeaf*>(node.get());
        if (leaf && leaf->getNumDrawables() == 1) geometry = leaf->getDrawable(0)->asGeometry();
        EXPECT_NE(geometry, nullptr);
    }

    template <typename Array>
    const Array& attribute(unsigned location) const
    {
        return dynamic_cast<const Array&>(*geometry->getVertexAttribArray(location));
    }
    unsigned integer(unsigned location, unsigned point) const
    {
        return static_cast<unsigned>(attribute<osg::IntArray>(location)[point]);
    }
    const osg::Vec3Array& vertices() const
    {
        return dynamic_cast<const osg::Vec3Array&>(*geometry->getVertexArray());
    }
    std::vector<int64_t> indices() const
    {
        const auto& packed = dynamic_cast<const osg::Vec2iArray&>(*geometry->getUserData());
        std::vector<int64_t> result(packed.size());
        std::memcpy(result.data(), packed.getDataPointer(), packed.getTotalDataSize());
        return result;
    }

    osg::ref_ptr<osg::Node> node;
    CellLeaf* leaf = nullptr;
    osg::Geometry* geometry = nullptr;
};

/// Counts the points that a geometry hands out.
struct HandedOut : osg::PrimitiveFunctor
{
    void setVertexArray(unsigned, const osg::Vec2*) override {}
    void setVertexArray(unsigned, const osg::Vec3*) override {}
    void setVertexArray(unsigned, const osg::Vec4*) override {}
    void setVertexArray(unsigned, const osg::Vec2d*) override {}
    void setVertexArray(unsigned, const osg::Vec3d*) override {}
    void setVertexArray(unsigned, const osg::Vec4d*) override {}
    void drawArrays(GLenum, GLint, GLsizei points) override { count += points; }
    void drawElements(GLenum, GLsizei, const GLubyte*) override {}
    void drawElements(GLenum, GLsizei, const GLushort*) override {}
    void drawElements(GLenum, GLsizei, const GLuint*) override {}

    int count = 0;
};

std::vector<TestPoint> numberedPoints(int count)
{
    std::vector<TestPoint> points(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        points[static_cast<size_t>(i)].x = i;
        points[static_cast<size_t>(i)].sourceId = static_cast<uint16_t>(i);
    }
    return points;
}

} // namespace

TEST(LasReaderWriter, PutsEveryFieldOfARecordWhereTheShadersReadIt)
{
    TestPoint point;
    point.x = -12345678;
    point.y = 2147483647;
    point.z = -2147483647 - 1;
    point.intensity = 65535;
    point.returnNumber = 3;
    point.numberOfReturns = 15;
    point.flags = 0xE4;
    point.classCode = 200;
    point.userData = 255;
    point.scanAngle = -1;
    point.sourceId = 0xFEDC;
    point.gpsTime = 312345678.123456;
    point.red = 0x8001;
    point.green = 0x8002;
    point.blue = 0xFFFF;
    const osg::Vec3d offset(512345.678, 5412345.25, -100.5);
    const osg::Vec3d scale(0.001, 0.01, 1e-7);
    const CellFixture fixture({TestPoint(), point}, offset, scale);
    const ReadCell read(fixture.wholeCell("store-0-0"));

    const osg::Vec3f vertex = read.vertices()[1];
    EXPECT_EQ(vertex.x(), static_cast<float>((point.x * scale.x() + offset.x()) - offset.x()));
    EXPECT_EQ(vertex.y(), static_cast<float>((point.y * scale.y() + offset.y()) - offset.y()));
    EXPECT_EQ(vertex.z(), static_cast<float>((point.z * scale.z() + offset.z()) - offset.z()));
    EXPECT_EQ(read.integer(7, 1), 255u);
    EXPECT_EQ(read.integer(9, 1), 0xFEDCFFFFu);
    EXPECT_EQ(read.integer(10, 1), 0xFFFFE4F3u);
    EXPECT_EQ(read.attribute<osg::FloatArray>(11)[1], static_cast<float>(point.gpsTime));
    EXPECT_EQ(read.integer(12, 1), 0xC8048001u);
    EXPECT_EQ(read.integer(13, 1), 0x8002FFFFu);

    for (const unsigned location : {7u, 9u, 10u, 12u, 13u})
        EXPECT_TRUE(read.geometry->getVertexAttribArray(location)->getPreserveDataType()) << location;
    for (const unsigned location : {7u, 9u, 10u, 11u, 12u, 13u}) {
        const osg::Array& array = *read.geometry->getVertexAttribArray(location);
        EXPECT_EQ(array.getNumElements(), 2u) << location;
        EXPECT_EQ(array.getBinding(), osg::Array::BIND_PER_VERTEX) << location;
    }
    EXPECT_EQ(read.geometry->getVertexAttribArray(8), nullptr);
}

TEST(LasReaderWriter, MakesAGeometryThatIsReadyToDrawAndToFind)
{
    const osg::Vec3d offset(500000, 5000000, 100);
    const CellFixture fixture(numberedPoints(5), offset);
    osg::ref_ptr<CellData> cell = fixture.wholeCell("store-3-77");
    cell->record.level = 3;
    cell->record.code = 77;
    cell->record.size[2] = 10;
    cell->record.center[0] = offset.x() + 7;
    const ReadCell read(cell);

    EXPECT_EQ(cell->referenceCount(), 1) << "the reader keeps no reference to the cell";
    EXPECT_EQ(read.leaf->getLevel(), 3);
    EXPECT_EQ(read.leaf->getCode(), 77u);
    EXPECT_EQ(read.leaf->getBoxMin(), osg::Vec3f(-43, -50, -5));
    EXPECT_EQ(read.leaf->getBoxMax(), osg::Vec3f(57, 50, 5));
    EXPECT_TRUE(read.geometry->getUseVertexBufferObjects());
    EXPECT_FALSE(read.geometry->getUseDisplayList());
    EXPECT_EQ(read.geometry->getDataVariance(), osg::Object::STATIC);
    EXPECT_NE(dynamic_cast<const ModelMatrix*>(read.geometry->getDrawCallback()), nullptr);
    const auto& draw = dynamic_cast<const osg::DrawArrays&>(*read.geometry->getPrimitiveSet(0));
    EXPECT_EQ(draw.getMode(), static_cast<GLenum>(GL_POINTS));
    EXPECT_EQ(draw.getFirst(), 0);
    EXPECT_EQ(draw.getCount(), 5);
    for (const osg::Object* object :
         std::initializer_list<const osg::Object*>{read.geometry, read.geometry->getVertexArray()}) {
        std::string identifier;
        EXPECT_TRUE(object->getUserValue("UUID", identifier));
        EXPECT_EQ(identifier, "store-3-77");
    }
}

TEST(LasReaderWriter, NumbersThePointsOfSeveralSegmentsByTheirPlaceInTheFile)
{
    CellFixture fixture(numberedPoints(1000));
    std::vector<osg::Vec4f> normals(1000);
    for (size_t i = 0; i < normals.size(); ++i)
        normals[i] = osg::Vec4f(0, 0, 1, static_cast<float>(i));
    fixture.writeNormals(normals);
    const ReadCell read(fixture.cell({{700, 290}, {10, 2}}));

    const std::vector<int64_t> indices = read.indices();
    ASSERT_EQ(indices.size(), 292u);
    const auto& vectors = read.attribute<osg::Vec4Array>(8);
    ASSERT_EQ(vectors.size(), 292u);
    for (unsigned i = 0; i < 292; ++i) {
        const int64_t expected = i < 290 ? 700 + i : 10 + (i - 290);
        ASSERT_EQ(indices[i], expected);
        ASSERT_EQ(read.integer(9, i) >> 16, static_cast<unsigned>(expected));
        ASSERT_EQ(vectors[i].w(), static_cast<float>(expected));
    }
}

TEST(LasReaderWriter, IgnoresANormalsFileThatIsMissingAndFillsShortOnesWithZero)
{
    CellFixture fixture(numberedPoints(4));
    fixture.octree->normalsFile = std::make_unique<VelBrx::File>("/nowhere/points.normals");
    EXPECT_EQ(ReadCell(fixture.wholeCell()).geometry->getVertexAttribArray(8), nullptr);

    fixture.writeNormals({osg::Vec4f(1, 0, 0, 1), osg::Vec4f(0, 1, 0, 1)});
    const ReadCell read(fixture.cell({{0, 2}, {2, 2}}));
    const auto& vectors = read.attribute<osg::Vec4Array>(8);
    EXPECT_EQ(vectors[1], osg::Vec4f(0, 1, 0, 1));
    EXPECT_EQ(vectors[3], osg::Vec4f(0, 0, 0, 0));
}

TEST(LasReaderWriter, ReadsNothingWithoutPoints)
{
    CellFixture fixture(numberedPoints(4));
    EXPECT_EQ(LasReaderWriter::read(nullptr), nullptr);
    EXPECT_EQ(LasReaderWriter::read(fixture.cell({})), nullptr);
    EXPECT_EQ(LasReaderWriter::read(fixture.cell({{0, 0}})), nullptr);

    osg::ref_ptr<CellData> orphan = fixture.wholeCell();
    fixture.octree = nullptr;
    EXPECT_EQ(LasReaderWriter::read(orphan), nullptr);
}

TEST(LasReaderWriter, HoldsThePointsThatCanBeMappedAndStatesTheDeclaredCount)
{
    const CellFixture fixture(numberedPoints(10));
    const int64_t far = std::numeric_limits<int64_t>::max() / 36;
    const std::vector<VelBrx::Segment> unusable[] = {
        {{8, 3}}, {{-1, 3}}, {{far, 3}}, {{std::numeric_limits<int64_t>::max(), 3}}};
    for (const std::vector<VelBrx::Segment>& segments : unusable) {
        const ReadCell read(fixture.cell({{4, 2}, segments[0], {0, 1}}));
        const std::vector<int64_t> expected = {4, 5, 0};
        EXPECT_EQ(read.indices(), expected);
        osg::Geometry::ArrayList arrays;
        read.geometry->getArrayList(arrays);
        EXPECT_EQ(arrays.size(), 7u);
        for (const osg::ref_ptr<osg::Array>& array : arrays)
            EXPECT_EQ(array->getNumElements(), 3u);
        EXPECT_FLOAT_EQ(read.geometry->getBoundingBox().xMax(), 0.005f);

        EXPECT_EQ(dynamic_cast<const osg::DrawArrays&>(*read.geometry->getPrimitiveSet(0)).getCount(), 6);
        HandedOut points;
        read.geometry->accept(points);
        EXPECT_EQ(points.count, 3) << "what walks over the points stays inside the arrays";
        const osg::ref_ptr<osg::Geometry> copy =
            osg::clone(read.geometry, osg::CopyOp(osg::CopyOp::DEEP_COPY_ALL));
        EXPECT_EQ(copy->getPrimitiveSet(0)->getNumIndices(), 3u);
    }
}

TEST(LasReaderWriter, PutsEditsWhereThePointsOfAnIncompleteCellStand)
{
    const CellFixture fixture(numberedPoints(10));
    const osg::ref_ptr<CellData> cell = fixture.cell({{8, 3}, {4, 2}, {0, 1}}); // the first reaches too far
    UnwrittenClasses& classes = UnwrittenClasses::instance();
    const auto written = std::make_shared<const std::vector<uint8_t>>(6, uint8_t(0));
    const auto current = std::make_shared<const std::vector<uint8_t>>(std::vector<uint8_t>{9, 9, 9, 0, 7, 0});
    classes.set({std::make_shared<CellPlace>(*cell), written, current});
    const ReadCell read(cell);
    classes.forget(cell->identifier);
    EXPECT_EQ(read.integer(12, 0) >> 24, 0u);
    EXPECT_EQ(read.integer(12, 1) >> 24, 7u);
    EXPECT_EQ(read.integer(12, 2) >> 24, 0u);

    auto& geometry = dynamic_cast<CellGeometry&>(*read.geometry);
    EXPECT_EQ(geometry.cellPoints(), 6u);
    geometry.editCategories([](osg::IntArray& attribute) {
        EXPECT_EQ(attribute.size(), 6u);
        attribute[0] = attribute[5] = 0x40000;
        return true;
    });
    EXPECT_EQ(read.integer(12, 0), 0u);
    EXPECT_EQ(read.integer(12, 2), 0x40000u);
}

TEST(LasReaderWriter, TakesNoMorePointsThanTheCellDeclares)
{
    const CellFixture fixture(numberedPoints(10));
    osg::ref_ptr<CellData> cell = fixture.cell({{0, 4}, {5, 4}});
    cell->record.pointCount = 6;
    const std::vector<int64_t> expected = {0, 1, 2, 3, 5, 6};
    EXPECT_EQ(ReadCell(cell).indices(), expected);

    cell->record.segments = {{0, std::numeric_limits<int64_t>::max()}};
    EXPECT_EQ(ReadCell(cell).indices().back(), 5);
    cell->record.segments = {{0, -5}, {0, 6}};
    EXPECT_EQ(ReadCell(cell).indices().back(), 5);
}

TEST(LasReaderWriter, GivesEveryArrayAModifiedCountOfItsOwn)
{
    const CellFixture fixture(numberedPoints(3));
    std::set<unsigned> counts;
    size_t arrays = 0;
    for (int cell = 0; cell < 1000; ++cell) {
        const ReadCell read(fixture.wholeCell());
        osg::Geometry::ArrayList list;
        read.geometry->getArrayList(list);
        for (const osg::ref_ptr<osg::Array>& array : list) {
            // A few edits of an array do not reach the count of another one.
            for (int edit = 0; edit < 20; ++edit, array->dirty())
                counts.insert(array->getModifiedCount());
            arrays += 20;
        }
    }
    EXPECT_EQ(counts.size(), arrays);
}
