#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LightSource>

using VelOsgDBBrx::ColorEntry;
using VelOsgDBBrx::ColorWithRangeInfo;
using VelOsgDBBrx::ShaderHelper;

namespace {

constexpr int kSize = 32;
constexpr float kSide = 6.3f; ///< of a square, metres
constexpr float kSouth = 4.2f;
constexpr int kMiddle = 7; ///< row of pixels through the squares

/// A square of two triangles that rises to the north.
struct Square
{
    float west;
    float slope = 0;
    bool facesDown = false;
    int classCode = 2;
    float z = 0; ///< at its southern side

    int column() const { return static_cast<int>(west + kSide / 2); }
};

/// Squares at the coordinates of a real survey, a pixel a metre, seen and lit straight from above.
struct MeshPicture
{
    explicit MeshPicture(const std::vector<Square>& squares) : viewer(kSize, kSize)
    {
        for (const Square& square : squares)
            add(square);
        geometry->setUseVertexBufferObjects(true);
        geometry->setVertexArray(_vertices);
        _classes->setPreserveDataType(true);
        geometry->setVertexAttribArray(13, _classes, osg::Array::BIND_PER_VERTEX);
        geometry->addPrimitiveSet(
            new osg::DrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(_vertices->size())));
        const osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->addDrawable(geometry);
        place->addChild(geode);
        place->setMatrix(osg::Matrixd::translate(PointPicture::kOrigin));

        light->setPosition(osg::Vec4(0, 0, 5, 0));
        light->setDiffuse(osg::Vec4(1, 0.5f, 0.25f, 1));
        const osg::ref_ptr<osg::LightSource> source = new osg::LightSource;
        source->setLight(light);
        const osg::ref_ptr<osg::Group> scene = new osg::Group;
        scene->addChild(source);
        scene->addChild(place);

        viewer.camera().setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
        viewer.camera().setViewMatrix(osg::Matrixd::translate(-PointPicture::kOrigin));
        viewer.camera().setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -1000, 1000);
        viewer.show(scene);
    }

    osg::Vec3ub at(int x, int y = kMiddle) { return pixel(*viewer.picture(), x, y); }

    HeadlessViewer viewer;
    const osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    const osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform;
    const osg::ref_ptr<osg::Light> light = new osg::Light(0);

private:
    void add(const Square& square)
    {
        const float west = square.west;
        const float north = square.z + kSide * square.slope;
        const osg::Vec3 corners[] = {
            osg::Vec3(west, kSouth, square.z), osg::Vec3(west + kSide, kSouth, square.z),
            osg::Vec3(west + kSide, kSouth + kSide, north), osg::Vec3(west, kSouth + kSide, north)};
        const int upward[] = {0, 1, 2, 0, 2, 3};
        for (int i = 0; i < 6; ++i) {
            _vertices->push_back(corners[upward[square.facesDown ? 5 - i : i]]);
            _classes->push_back(square.classCode);
        }
    }

    const osg::ref_ptr<osg::Vec3Array> _vertices = new osg::Vec3Array(osg::Array::BIND_PER_VERTEX);
    const osg::ref_ptr<osg::IntArray> _classes = new osg::IntArray;
};

osg::Vec4f color(int red, int green, int blue)
{
    return osg::Vec4f(static_cast<float>(red) / 255, static_cast<float>(green) / 255,
                      static_cast<float>(blue) / 255, 0.0f);
}

std::vector<osg::Vec4f> classColors()
{
    std::vector<osg::Vec4f> colors(256, color(200, 100, 80));
    colors.front() = color(10, 20, 40);
    colors.back() = color(100, 200, 240);
    return colors;
}

/// From one colour at height z above the picture's origin to another, `span` higher.
ColorWithRangeInfo heights(const osg::Vec4f& low, const osg::Vec4f& high, float z, float span)
{
    ColorWithRangeInfo info;
    info.entries.resize(2);
    info.entries[0].color = low;
    info.entries[1].color = high;
    info.entries[1].position = 1;
    info.range.set(static_cast<float>(PointPicture::kOrigin.z()) + z, span);
    return info;
}

const osg::Vec4f kBlack(0, 0, 0, 1);
constexpr float kGentle = 0.75f; ///< a slope whose normal has z = 0.8

} // namespace

TEST(LitModes, LightTheClassColoursOfAMeshWhicheverWayItsTrianglesFace)
{
    MeshPicture picture({{1}, {8, kGentle}, {15, kGentle, true}, {22, -kGentle}});
    std::vector<osg::Vec4f> colors = classColors();
    ShaderHelper::classificationColorShaderWithLight(picture.place, colors);
    EXPECT_EQ(picture.at(4), osg::Vec3ub(200, 50, 20)) << "level: the colour times the light's";
    EXPECT_EQ(picture.at(11), osg::Vec3ub(160, 40, 16));
    EXPECT_EQ(picture.at(18), osg::Vec3ub(160, 40, 16));
    EXPECT_EQ(picture.at(25), osg::Vec3ub(160, 40, 16));
    EXPECT_EQ(picture.at(4, 20), osg::Vec3ub(0, 0, 0)) << "nothing but the squares";

    picture.light->setPosition(osg::Vec4(0, 0, -1, 0));
    EXPECT_EQ(picture.at(4), osg::Vec3ub(0, 0, 0)) << "light from below";
}

TEST(LitModes, PinClassCodesToTheTable)
{
    MeshPicture picture({{1, 0, false, -7}, {8, 0, false, 300}, {15, 0, false, 255}});
    std::vector<osg::Vec4f> colors = classColors();
    ShaderHelper::classificationColorShaderWithLight(picture.place, colors);
    EXPECT_EQ(picture.at(4), osg::Vec3ub(10, 10, 10));
    EXPECT_EQ(picture.at(11), osg::Vec3ub(100, 100, 60));
    EXPECT_EQ(picture.at(18), osg::Vec3ub(100, 100, 60));
}

TEST(LitModes, LightTheGradientOfAMeshByItsHeightInTheWorld)
{
    MeshPicture picture({{1, 0, false, 0, 1}, {8, 0, false, 0, 4}, {15, 0, false, 0, -3}, {22, 0.75f}});
    ColorWithRangeInfo info = heights(kBlack, color(200, 100, 64), 0, 2);
    ShaderHelper::elevationColorShaderWithLight(picture.place, info);
    EXPECT_EQ(picture.at(4), osg::Vec3ub(100, 25, 8)) << "half way";
    EXPECT_EQ(picture.at(11), osg::Vec3ub(200, 50, 16)) << "above the range";
    EXPECT_EQ(picture.at(18), osg::Vec3ub(0, 0, 0)) << "below it";

    info.isCircle = true;
    info.range.y() = 8;
    ShaderHelper::elevationColorShaderWithLight(picture.place, info);
    EXPECT_EQ(picture.at(4), osg::Vec3ub(25, 6, 2)) << "an eighth";
    EXPECT_EQ(picture.at(18), osg::Vec3ub(125, 31, 10)) << "repeats below the range: five eighths";

    info = heights(color(200, 100, 64), color(200, 100, 64), 0, 2);
    ShaderHelper::elevationColorShaderWithLight(picture.place, info);
    EXPECT_EQ(picture.at(25), osg::Vec3ub(160, 40, 13)) << "a slope";
}

/// The two modes take their normals from different coordinates, which a turned mesh shows.
TEST(LitModes, TakeTheNormalFromWorldCoordinatesForClassesAndFromLocalOnesForHeights)
{
    MeshPicture picture(std::vector<Square>(1, Square{1}));
    picture.place->setMatrix(osg::Matrixd::rotate(std::asin(0.6), osg::X_AXIS) *
                             osg::Matrixd::translate(PointPicture::kOrigin));
    ColorWithRangeInfo info = heights(color(200, 100, 80), color(200, 100, 80), 0, 2);
    ShaderHelper::elevationColorShaderWithLight(picture.place, info);
    EXPECT_EQ(picture.at(4, 5), osg::Vec3ub(160, 40, 16)) << "cos 36.87 degrees";
    std::vector<osg::Vec4f> colors = classColors();
    ShaderHelper::classificationColorShaderWithLight(picture.place, colors);
    EXPECT_EQ(picture.at(4, 5), osg::Vec3ub(56, 14, 6)) << "cos 73.74 degrees: turned by the node once more";
}

TEST(LitModes, LeaveADrawCallbackOfTheHostAlone)
{
    MeshPicture picture(std::vector<Square>(1, Square{1}));
    const osg::ref_ptr<osg::Drawable::DrawCallback> own = new osg::Drawable::DrawCallback;
    picture.geometry->setDrawCallback(own);
    std::vector<osg::Vec4f> colors = classColors();
    ShaderHelper::classificationColorShaderWithLight(picture.place, colors);
    EXPECT_EQ(picture.geometry->getDrawCallback(), own);
}
