#include "lod/CellVisibility.h"
#include "store/StoreIndex.h"
#include "tests/support/HandOctree.h"
#include "tests/support/PlainWalk.h"

#include <VelOsgDBBrx/FrameStamp.h>

#include <osg/Math>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using VelOsgDBBrx::FrameStamp;
using VelOsgUtils::CameraState;

const osg::Vec3d kOffset(500000.125, 4500000.5, 80);
const osg::ref_ptr<FrameStamp> kNoRegion = new FrameStamp;

/// Pixels between a point and one a unit of local length beside it, across the line of sight: along the
/// picture's axis that shows it larger.
double pixelsAt(const osg::Vec3d& point, const CameraState& camera, const osg::Matrixd& localToWorld)
{
    const osg::Matrixd toEye = localToWorld * camera.view;
    const osg::Matrixd toWindow = camera.projection * osg::Matrixd::translate(1, 1, 1) *
                                  osg::Matrixd::scale(camera.width / 2.0, camera.height / 2.0, 0.5);
    const double unit = osg::Matrixd::transform3x3(osg::Vec3d(1, 0, 0), toEye).length();
    const osg::Vec3d at = point * toEye;
    const osg::Vec3d there = at * toWindow;
    return std::max(((at + osg::Vec3d(unit, 0, 0)) * toWindow - there).length(),
                    ((at + osg::Vec3d(0, unit, 0)) * toWindow - there).length());
}

enum Projection
{
    PERSPECTIVE,
    OFF_AXIS, ///< as the tiles of a video wall
    ORTHOGRAPHIC
};

class PixelSpacingOf : public testing::TestWithParam<Projection>
{
protected:
    double uniform(double from, double to)
    {
        return std::uniform_real_distribution<double>(from, to)(_random);
    }

    CameraState camera()
    {
        CameraState camera;
        camera.width = static_cast<int>(uniform(200, 2000));
        camera.height = static_cast<int>(uniform(200, 2000));
        const osg::Vec3d eye(uniform(-150, 150), uniform(-150, 150), uniform(-150, 150));
        const osg::Vec3d target(uniform(-40, 40), uniform(-40, 40), uniform(-40, 40));
        camera.view.makeLookAt(kOffset + eye, kOffset + target, osg::Vec3d(0, 0, 1));
        if (GetParam() == PERSPECTIVE)
            camera.projection.makePerspective(uniform(5, 120), uniform(0.5, 2), 0.1, 1000);
        else if (GetParam() == OFF_AXIS)
            camera.projection.makeFrustum(uniform(-0.3, 0.1), uniform(0.2, 0.4), uniform(-0.1, 0.2),
                                          uniform(0.3, 0.4), 0.3, 1000);
        else
            camera.projection.makeOrtho(-uniform(5, 80), uniform(5, 80), -uniform(5, 80), uniform(5, 80), 1,
                                        1000);
        return camera;
    }

private:
    std::mt19937 _random{5};
};

INSTANTIATE_TEST_SUITE_P(Lod, PixelSpacingOf, testing::Values(PERSPECTIVE, OFF_AXIS, ORTHOGRAPHIC));

TEST_P(PixelSpacingOf, ACellIsWantedWhileItsPointsAreThePixelsApartThatWereAskedFor)
{
    const osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(5, kOffset, 100), kOffset);
    const osg::ref_ptr<CellTable> table = new CellTable(*octree);
    size_t answers[2] = {0, 0};
    for (int round = 0; round < 20; ++round) {
        const double scale = uniform(0.1, 3);
        const osg::Matrixd place = osg::Matrixd::scale(scale, scale, scale) *
                                   osg::Matrixd::rotate(uniform(0, 6), osg::Vec3d(1, 2, 3)) *
                                   osg::Matrixd::translate(kOffset);
        const CameraState camera = this->camera();
        const double pixels = uniform(0.3, 3);
        const SpacingVisibility visibility(camera, *kNoRegion, place, pixels);
        const FrustumSides sides(place * camera.view * camera.projection);
        for (CellTable::Cell cell : table->cells) {
            cell.resolutionLength *= uniform(0.05, 1); // small enough for some in every picture
            const double depth = -(osg::Vec3d(cell.center) * place * camera.view).z();
            const bool isNear = depth < 2 * scale * cell.halfSize.length();
            if (sides.exclude(cell) || (GetParam() != ORTHOGRAPHIC && isNear)) continue;
            const double spacing =
                VelBrx::pointSpacing(cell.resolutionLength) * pixelsAt(cell.center, camera, place);
            ASSERT_EQ(visibility.checkCellIsVisiable(cell), spacing > pixels ? 2 : 0)
                << "round " << round << ", " << spacing << " of " << pixels << " pixels";
            ++answers[spacing > pixels];
        }
    }
    EXPECT_GT(answers[0], 500u);
    EXPECT_GT(answers[1], 500u);
}

TEST(PixelSpacing, AtThirtyDegreesAndOnePixelItWantsWhatTheCalibratedFormulaWants)
{
    const osg::ref_ptr<OctreeInfo> octree = handOctree(fullTree(6, kOffset, 100), kOffset);
    octree->transform = osg::Matrixd::rotate(0.7, osg::Vec3d(1, 2, 3)) * osg::Matrixd::translate(kOffset);
    const osg::ref_ptr<CellTable> table = new CellTable(*octree);
    for (const double distance : {55.0, 120.0, 400.0, 1500.0}) {
        const CameraState camera{osg::Matrixd::perspective(30, 1.5, 1, 5000),
                                 osg::Matrixd::lookAt(kOffset + osg::Vec3d(0.3, -0.5, 0.8) * distance,
                                                      kOffset, osg::Vec3d(0, 0, 1)),
                                 900, 600};
        const SpacingVisibility spacing(camera, *kNoRegion, octree->transform, 1);
        const CameraVisibility calibrated(camera, *kNoRegion, octree->transform);
        size_t wanted = 0, different = 0;
        for (const CellTable::Cell& cell : table->cells) {
            const int answer = spacing.checkCellIsVisiable(cell);
            wanted += answer == 2;
            different += answer != calibrated.checkCellIsVisiable(cell);
        }
        EXPECT_GT(wanted, 0u);
        EXPECT_LE(different, wanted / 1000) << "at " << distance;
    }
}

TEST(PixelSpacing, TheCellThatTheEyeIsInIsWantedAndOneBehindItIsNot)
{
    std::vector<VelBrx::CellWithSegment> records = fullTree(1, osg::Vec3d(), 10);
    records[0].resolutionLength = 1e-4;
    const osg::ref_ptr<CellTable> table = new CellTable(*handOctree(records));
    for (const double fieldOfView : {5.0, 35.0, 120.0})
        for (const auto& [y, answer] :
             {std::pair(4.9, 2), std::pair(-4.9, 2), std::pair(5.1, 0), std::pair(-6.0, 0)}) {
            const CameraState camera{
                osg::Matrixd::perspective(fieldOfView, 1, 0.01, 100),
                osg::Matrixd::lookAt(osg::Vec3d(1, y, 2), osg::Vec3d(1, y + 1, 2), osg::Vec3d(0, 0, 1)), 100,
                100};
            EXPECT_EQ(
                SpacingVisibility(camera, *kNoRegion, osg::Matrixd(), 1).checkCellIsVisiable(table->cells[0]),
                answer)
                << fieldOfView << ", y " << y;
        }
}

TEST(PixelSpacing, FixedDepthsCutThePictureAndThoseThatAreWorkedOutAnewMeanNothing)
{
    std::vector<VelBrx::CellWithSegment> records = fullTree(1, osg::Vec3d(), 10);
    records[0].resolutionLength = 10;
    const osg::ref_ptr<CellTable> table = new CellTable(*handOctree(records));
    for (const auto& [nearest, farthest, answer] :
         {std::tuple(1.0, 94.0, 0), {1.0, 96.0, 2}, {104.0, 200.0, 2}, {106.0, 200.0, 0}}) {
        CameraState camera{osg::Matrixd::ortho(-4, 4, -4, 4, nearest, farthest),
                           osg::Matrixd::lookAt(osg::Vec3d(0, -100, 0), osg::Vec3d(), osg::Vec3d(0, 0, 1)),
                           100, 100};
        const auto wanted = [&] {
            return SpacingVisibility(camera, *kNoRegion, osg::Matrixd(), 1)
                .checkCellIsVisiable(table->cells[0]);
        };
        EXPECT_EQ(wanted(), 2);
        camera.hasDepths = true;
        EXPECT_EQ(wanted(), answer) << nearest << " to " << farthest;
    }
}

/// Flat terrain of a square kilometre in cells of 16384 points, down to 3 cm apart.
class Terrain
{
public:
    Terrain()
    {
        VelBrx::StoreIndex index;
        index.cubeSize = kSize;
        for (uint8_t level = 0; level < 9; ++level)
            for (uint64_t place = 0; place < uint64_t{1} << (2 * level); ++place) {
                uint64_t code = 0; // of the lowest layer: the bits of x and y
                for (unsigned bit = 0; bit < level; ++bit)
                    code |= (place >> (2 * bit) & 3) << (3 * bit);
                index.cells.push_back({level, code, {{0, 16384}}});
            }
        octree = handOctree(deriveCells(index));
    }

    template <class Visibility>
    double pointsWanted(const Visibility& visibility) const
    {
        double points = 0;
        walkPlainly(
            *octree->root, *octree, visibility,
            [&](const CellData& cell) { points += static_cast<double>(cell.record.segments.front().count); },
            [](const CellData&) {});
        return points;
    }

    static constexpr double kSize = 1024;
    osg::ref_ptr<OctreeInfo> octree;
};

/// Oblique cameras from 5 to 120 degrees: from one place, and from as far as keeps 60 m of ground in the
/// picture's middle.
TEST(PixelSpacing, PointsWantedVarySmoothlyFromFiveTo120Degrees)
{
    const Terrain terrain;
    const osg::Vec3d target(512, 512, 0);
    for (const bool samePlace : {true, false}) {
        double before = 0, fewest = 1e9, most = 0;
        for (int fieldOfView = 5; fieldOfView <= 120; ++fieldOfView) {
            const double distance = samePlace ? 80 : 30 / std::tan(osg::DegreesToRadians(fieldOfView / 2.0));
            const CameraState camera{osg::Matrixd::perspective(fieldOfView, 1.5, 1, 5000),
                                     osg::Matrixd::lookAt(target + osg::Vec3d(0.3, -0.6, 0.74) * distance,
                                                          target, osg::Vec3d(0, 0, 1)),
                                     1500, 1000};
            const double points =
                terrain.pointsWanted(SpacingVisibility(camera, *kNoRegion, osg::Matrixd(), 1));
            if (before > 0) {
                EXPECT_NEAR(points / before, 1, 0.3) << fieldOfView;
            }
            before = points;
            fewest = std::min(fewest, points);
            most = std::max(most, points);
        }
        // From the same place the finest cells there are show no more than a fraction of a narrow picture.
        EXPECT_GT(fewest, most * (samePlace ? 0.2 : 0.5));
    }
}

} // namespace
