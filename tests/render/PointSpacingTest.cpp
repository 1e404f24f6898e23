#include "tests/support/BuildStore.h"
#include "tests/support/PagingScene.h"
#include "tests/support/TestSurvey.h"

#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/PointCloudHelper.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgDBBrx/PointPicker.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/Math>

#include <cmath>

using VelOsgDBBrx::GlobalObject;
using VelOsgDBBrx::PointCloudHelper;
using VelOsgDBBrx::ShaderHelper;

namespace {

constexpr int kSize = 192;
const osg::Vec3ub kBlack(0, 0, 0);
const osg::Vec4f kWhite(1, 1, 1, 1);

/// Two level squares of points, a metre apart, in stores of two levels. The first stands where its file has
/// it; the second is turned, and drawn to three times the scale beside it. Files have their middle at the
/// clouds' origins.
class TwoSquares
{
public:
    TwoSquares() : _manager(*GlobalObject::registerGraphicsContext(view.window))
    {
        PointCloudHelper::setPointSize(scene, 1);
        PointCloudHelper::setBalancedEyeDomeLighting(scene);
        ShaderHelper::singleColorShader(scene, kWhite);
        _manager.setLodOperation(new VelOsgDBBrx::PixelSpacingLod(_manager));
        for (const auto& cloud : {first.root, second.root})
            scene->addChild(cloud);
        second.root->setMatrix(osg::Matrixd::rotate(osg::PI_2, osg::Z_AXIS) *
                               osg::Matrixd::scale(kScale, kScale, kScale) *
                               osg::Matrixd::translate(secondMiddle));
        view.show(scene);
    }

    ~TwoSquares() { GlobalObject::unRegisterGraphicsContext(view.window); }

    /// Straight down, `metres` of the world across the picture.
    void lookDown(const osg::Vec3d& at, double metres)
    {
        view.camera().setViewMatrixAsLookAt(at + osg::Vec3d(0, 0, 100), at, osg::Y_AXIS);
        view.camera().setProjectionMatrixAsOrtho(-metres / 2, metres / 2, -metres / 2, metres / 2, 1, 200);
    }

    /// From aside, so that points fill the picture; no axis of picture and world is along another.
    void lookObliquely(const osg::Vec3d& at, bool perspective)
    {
        view.camera().setViewMatrixAsLookAt(at + osg::Vec3d(9, -14, 24), at, osg::Z_AXIS);
        if (perspective)
            view.camera().setProjectionMatrixAsPerspective(40, 1, 1, 200);
        else
            view.camera().setProjectionMatrixAsOrtho(-8, 8, -8, 8, 1, 200);
    }

    /// The part of the picture that shows no point; without its border, where points whose middle is outside
    /// are missing.
    double gaps()
    {
        constexpr int kBorder = 32;
        EXPECT_TRUE(settle(view));
        const osg::ref_ptr<osg::Image> picture = view.picture();
        int black = 0;
        for (int y = kBorder; y < kSize - kBorder; ++y)
            for (int x = kBorder; x < kSize - kBorder; ++x)
                black += pixel(*picture, x, y) == kBlack;
        return black / std::pow(kSize - 2 * kBorder, 2);
    }

    std::string build(const char* name)
    {
        TestSurvey survey;
        survey.side = 300;
        EXPECT_TRUE(survey.write(folder.file(name)));
        const std::string store = folder.file(std::string(name) + ".brx");
        buildStoreOf(folder.file(name), store);
        return store;
    }

    static constexpr double kScale = 3;
    TempFolder folder;
    HeadlessViewer view{kSize, kSize};
    PlacedCloud first{build("a.las")};
    PlacedCloud second{build("b.las")};
    const osg::Vec3d middle = first.root->getMatrix().getTrans();
    const osg::Vec3d secondMiddle = middle + osg::Vec3d(700, 0, 0);
    const osg::ref_ptr<osg::Group> scene = new osg::Group;

    VelOsgDBBrx::IPointLoadManager& manager() { return _manager; }

private:
    VelOsgDBBrx::IPointLoadManager& _manager;
};

} // namespace

TEST(PointSpacing, ClosesTheGapsOfEveryCloudFromNearAndLeavesPointsFineFromFar)
{
    TwoSquares squares;
    for (const osg::Vec3d& at : {squares.middle, squares.secondMiddle})
        for (const bool perspective : {true, false}) {
            SCOPED_TRACE(perspective);
            squares.lookObliquely(at, perspective);
            PointCloudHelper::setPointSizeBySpacing(squares.scene, 0);
            EXPECT_GT(squares.gaps(), 0.9);
            PointCloudHelper::setPointSizeBySpacing(squares.scene, 1.5, 1, 64);
            EXPECT_EQ(squares.gaps(), 0);
            ShaderHelper::switchEDLShader(squares.scene, true);
            EXPECT_EQ(squares.gaps(), 0) << "both passes of eye-dome lighting cover the same";
            ShaderHelper::switchEDLShader(squares.scene, false);
        }

    // Half the space: a quarter of the picture, whether points are of the first level or of the second.
    PointCloudHelper::setPointSizeBySpacing(squares.scene, 0.5, 1, 64);
    squares.lookDown(squares.middle, 24);
    EXPECT_NEAR(squares.gaps(), 0.75, 0.03);
    squares.lookDown(squares.secondMiddle, 24 * TwoSquares::kScale);
    EXPECT_NEAR(squares.gaps(), 0.75, 0.03);
    PointCloudHelper::setPointSizeBySpacing(squares.scene, 0.5, 1, 2);
    EXPECT_NEAR(squares.gaps(), 1 - 4.0 / 64, 0.02) << "the largest size";
    PointCloudHelper::setPointSizeBySpacing(squares.first.node, 1.5, 1, 64);
    PointCloudHelper::setPointSizeBySpacing(squares.scene, 0);
    EXPECT_NEAR(squares.gaps(), 1 - 1.0 / 64, 0.01) << "that of the other cloud is its own";
    squares.lookDown(squares.middle, 24);
    EXPECT_EQ(squares.gaps(), 0);
}

TEST(PointSpacing, GoesByTheCellsThatAreDrawnAndPicksWhatItShows)
{
    TwoSquares squares;
    // The second level is there in the south-east alone.
    PointCloudHelper::setPointSizeBySpacing(squares.scene, 0.5, 1, 64);
    squares.lookDown(squares.middle + osg::Vec3d(70, -50, 0), 24);
    EXPECT_NEAR(squares.gaps(), 0.75, 0.03);
    PointCloudHelper::setPointSizeBySpacing(squares.scene, 1.5, 1, 64);
    squares.lookDown(squares.middle, 48);
    EXPECT_EQ(squares.gaps(), 0);
    const int whole = static_cast<int>(squares.first.lod->getNumChildren());
    squares.manager().setMaxNumOfPointCloud(1);
    EXPECT_LT(squares.gaps(), 0.02) << "points of the first level grow";
    EXPECT_LT(static_cast<int>(squares.first.lod->getNumChildren()), whole);
    squares.manager().setMaxNumOfPointCloud(10000000);
    EXPECT_EQ(squares.gaps(), 0);

    // The corner between four points is nobody's pixel without.
    const osg::ref_ptr<VelOsgDBBrx::PointPicker> picker = new VelOsgDBBrx::PointPicker(squares.scene, 0);
    const osg::ref_ptr<osg::Group> all = new osg::Group;
    all->addChild(squares.scene);
    all->addChild(picker);
    squares.view.viewer->setSceneData(all);
    squares.lookDown(squares.middle, 24);
    for (const double factor : {0.0, 1.5}) {
        PointCloudHelper::setPointSizeBySpacing(squares.scene, factor, 1, 64);
        squares.gaps();
        ASSERT_TRUE(picker->request(squares.view.camera(), 100.5, 100.5));
        std::optional<VelOsgDBBrx::PickedPoint> point;
        for (int frame = 0; frame < 5 && !picker->takeAnswer(point); ++frame)
            squares.view.frame();
        ASSERT_EQ(point.has_value(), factor > 0);
        if (point) {
            EXPECT_LT((point->position - squares.middle).length(), 2);
        }
    }
}
