#include "tests/support/PlainWalk.h"
#include "lod/CellVisibility.h"
#include "tests/support/HandOctree.h"

#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgUtils/DecrementalCompileOperation.h>

#include <osg/Group>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <set>

namespace {

using VelOsgDBBrx::FrameStamp;
using VelOsgUtils::CameraState;

const osg::Vec3d kOffset(500000.125, 4500000.5, 80);

/// Three trees of cells of all shapes, some of them loaded, and cameras among them.
class Clouds
{
public:
    explicit Clouds(unsigned seed) : _random(seed)
    {
        for (const double scale : {1.0, 0.01, 40.0}) {
            osg::ref_ptr<OctreeInfo> octree = handOctree(irregularTree(), kOffset);
            octree->transform = osg::Matrixd::rotate(uniform(0, 6), osg::Vec3d(1, 2, 3)) *
                                osg::Matrixd::scale(scale, scale * uniform(0.5, 2), scale) *
                                osg::Matrixd::translate(kOffset + osg::Vec3d(uniform(-50, 50), 0, 0));
            if (seed % 5 == 0) octree->transform(0, 3) = 1e-4 / scale; // no affine place
            visitCells(*octree->root, [&](CellData& cell) {
                if (uniform(0, 1) < 0.5) cell.node = new osg::Group;
            });
            stamp->octrees.push_back(octree);
        }
        stamp->planesPerGroup = seed % 3 ? 0 : 2;
        for (int i = 0; i < 4; ++i) {
            const osg::Vec3d normal(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1));
            stamp->planes.emplace_back(normal, uniform(0, 60) - normal * kOffset);
        }
        stamp->maxNumOfPointCloud = static_cast<uint64_t>(std::pow(10, uniform(1, 6)));
    }

    CameraState camera()
    {
        CameraState camera;
        camera.width = static_cast<int>(uniform(200, 4000));
        camera.height = static_cast<int>(uniform(200, 4000));
        const double far = std::pow(10, uniform(0.5, 4.5));
        const osg::Vec3d eye = osg::Vec3d(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1)) * far;
        const osg::Vec3d target(uniform(-40, 40), uniform(-40, 40), uniform(-40, 40));
        camera.view.makeLookAt(kOffset + eye, kOffset + target, osg::Vec3d(0, 0, 1));
        const int kind = static_cast<int>(uniform(0, 3));
        if (kind == 0)
            camera.projection.makePerspective(uniform(20, 32), uniform(0.5, 2), 0.1, 1000);
        else if (kind == 1)
            camera.projection.makeFrustum(-0.3, 0.1, -0.1, 0.2, 0.7, 1000);
        else
            camera.projection.makeOrtho(-far, far / 2, -far / 2, far, -1000, 1000);
        camera.hasDepths = uniform(0, 1) < 0.3;
        return camera;
    }

    osg::ref_ptr<FrameStamp> stamp = new FrameStamp;

private:
    double uniform(double from, double to)
    {
        return std::uniform_real_distribution<double>(from, to)(_random);
    }

    /// Cells are left out with all that is below them, others are shifted and stick out of their parents.
    std::vector<VelBrx::CellWithSegment> irregularTree()
    {
        std::vector<VelBrx::CellWithSegment> records = fullTree(5, kOffset, 100, 5);
        const bool differ = uniform(0, 1) < 0.5;
        for (VelBrx::CellWithSegment& record : records) {
            if (record.level > 0 && uniform(0, 1) < 0.1) record.code = ~record.code;
            if (uniform(0, 1) < 0.05) record.center[1] += uniform(-30, 30);
            record.size[2] *= static_cast<float>(uniform(0, 1.5));
            if (differ) record.resolutionLength *= uniform(0.3, 3);
            record.segments = {{0, static_cast<int64_t>(uniform(0, 300))}};
        }
        return records;
    }

    std::mt19937 _random;
};

/// What a pass does, told cell by cell.
struct Outcome
{
    std::set<const CellData*> loaded;
    std::vector<const osg::Node*> removed; ///< in their order
};

template <class MakeVisibility>
Outcome plainPass(const FrameStamp& stamp, const MakeVisibility& makeVisibility)
{
    Outcome outcome;
    std::array<std::vector<CellData*>, 256> wanted;
    const auto note = [&](CellData& cell) {
        if (cell.node) outcome.removed.push_back(cell.node);
    };
    for (const osg::ref_ptr<OctreeInfo>& octree : stamp.octrees)
        walkPlainly(
            *octree->root, *octree, makeVisibility(octree->transform),
            [&](CellData& cell) { wanted[cell.record.level].push_back(&cell); },
            [&](CellData& cell) { visitCells(cell, note); });
    uint64_t sum = 0;
    for (size_t level = 0; level < wanted.size(); ++level) {
        uint64_t points = 0;
        for (const CellData* cell : wanted[level])
            points += static_cast<uint64_t>(cell->record.segments.front().count);
        const bool fits = level == 0 || sum + points < stamp.maxNumOfPointCloud;
        sum += fits ? points : 0;
        for (CellData* cell : wanted[level])
            if (fits)
                outcome.loaded.insert(cell);
            else
                note(*cell);
    }
    return outcome;
}

Outcome outcomeOf(osg::Operation& pass, FrameStamp& stamp, VelOsgUtils::DecrementalCompileOperation& removals)
{
    const std::vector<osg::ref_ptr<OctreeInfo>> octrees = stamp.octrees;
    pass(&stamp);
    Outcome outcome;
    for (const osg::ref_ptr<OctreeInfo>& octree : octrees)
        visitCells(*octree->root, [&](CellData& cell) {
            if (cell.node) outcome.loaded.insert(&cell);
        });
    for (const auto& removal : removals.take())
        outcome.removed.push_back(removal.node);
    return outcome;
}

/// Passes decide for whole subtrees where they can. What they load and give up, and in which order, is what a
/// test of each cell by itself says.
class PlainWalk : public testing::Test
{
protected:
    template <class MakeVisibility>
    void expectAsPlain(osg::Operation& pass, FrameStamp& stamp, const MakeVisibility& makeVisibility)
    {
        const Outcome expected = plainPass(stamp, makeVisibility);
        for (const osg::ref_ptr<OctreeInfo>& octree : stamp.octrees) {
            const osg::ref_ptr<CellTable> table = new CellTable(*octree);
            const auto visibility = makeVisibility(octree->transform);
            for (size_t i = 0; i < table->level(table->levels() - 1).first; ++i) {
                ++(visibility.wantsAll(table->subtrees[i]) ? whole : part);
                if (i % 8 == 0) expectCornersWanted(visibility, table->subtrees[i]);
            }
        }
        const Outcome outcome = outcomeOf(pass, stamp, *removals);
        EXPECT_TRUE(outcome.loaded == expected.loaded);
        EXPECT_TRUE(outcome.removed == expected.removed);
    }

    /// The least resolution length with which a subtree is wanted as a whole is enough at its corners.
    template <class Visibility>
    static void expectCornersWanted(const Visibility& visibility, CellTable::Subtree subtree)
    {
        double tooShort = 0;
        subtree.shortest = 1e6;
        if (!visibility.wantsAll(subtree)) return;
        for (int step = 0; step < 50; ++step) {
            const double enough = subtree.shortest;
            subtree.shortest = (tooShort + enough) / 2;
            if (visibility.wantsAll(subtree)) continue;
            tooShort = subtree.shortest;
            subtree.shortest = enough;
        }
        for (const osg::Vec3f& corner : getBox(subtree.min, subtree.max))
            ASSERT_EQ(visibility.checkCellIsVisiable({corner, osg::Vec3f(), subtree.shortest}), 2);
    }

    void TearDown() override
    {
        EXPECT_GT(whole, 500u);
        EXPECT_GT(part, 500u);
    }

    /// Of a hundred scenes, each with a camera; `visibility` of camera, stamp and a cloud's place.
    template <class MakeVisibility>
    void expectAsPlainOfCameras(osg::Operation& pass, const MakeVisibility& visibility)
    {
        for (unsigned seed = 1; seed <= 100 && !HasFailure(); ++seed) {
            SCOPED_TRACE(seed);
            Clouds clouds(seed);
            const CameraState camera = clouds.camera();
            clouds.stamp->views = {{camera, {0, 1, 2}}};
            expectAsPlain(pass, *clouds.stamp, [&](const osg::Matrixd& place) {
                return visibility(camera, *clouds.stamp, place);
            });
        }
    }

    size_t whole = 0, part = 0; ///< subtrees that passes decide for at once, and those that they do not
    const osg::ref_ptr<VelOsgUtils::DecrementalCompileOperation> removals =
        new VelOsgUtils::DecrementalCompileOperation;
};

TEST_F(PlainWalk, OfACameraByTheCalibratedFormula)
{
    const osg::ref_ptr<osg::Operation> pass = new VelOsgDBBrx::DynPointCloudLod(nullptr, removals);
    expectAsPlainOfCameras(*pass,
                           [](const CameraState& camera, const VelOsgDBBrx::FrameStamp& stamp,
                              const osg::Matrixd& place) { return CameraVisibility(camera, stamp, place); });
}

TEST_F(PlainWalk, OfACameraByTheSpacingOfPixels)
{
    const osg::ref_ptr<osg::Operation> pass = new VelOsgDBBrx::PixelSpacingLod(nullptr, removals, 1.5);
    expectAsPlainOfCameras(
        *pass, [](const CameraState& camera, const VelOsgDBBrx::FrameStamp& stamp,
                  const osg::Matrixd& place) { return SpacingVisibility(camera, stamp, place, 1.5); });
}

TEST_F(PlainWalk, OfARegion)
{
    const osg::ref_ptr<osg::Operation> pass = new VelOsgDBBrx::FixPointCloudLod(nullptr, removals);
    for (unsigned seed = 1; seed <= 60 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Clouds clouds(seed);
        clouds.stamp->planesPerGroup = 1 + static_cast<int>(seed % 3);
        clouds.stamp->maxNumOfPointCloud = 1u << 30; // the pass knows no budget
        expectAsPlain(*pass, *clouds.stamp,
                      [&](const osg::Matrixd& place) { return RegionVisibility(*clouds.stamp, place); });
    }
}

/// Two cameras with room for all they want: each cell that one of them wants, and no other.
TEST(PlainWalkOfTwoViews, LoadsWhatEitherWants)
{
    const osg::ref_ptr<VelOsgUtils::DecrementalCompileOperation> removals =
        new VelOsgUtils::DecrementalCompileOperation;
    const osg::ref_ptr<osg::Operation> dyn = new VelOsgDBBrx::DynPointCloudLod(nullptr, removals);
    for (unsigned seed = 1; seed <= 30; ++seed) {
        Clouds clouds(seed);
        FrameStamp& stamp = *clouds.stamp;
        stamp.maxNumOfPointCloud = 1u << 30;
        stamp.views = {{clouds.camera(), {0, 1, 2}}, {clouds.camera(), {0, 2}}};
        std::set<const CellData*> expected;
        for (const FrameStamp::View& view : stamp.views)
            for (const size_t number : view.octrees) {
                OctreeInfo& octree = *stamp.octrees[number];
                const CameraVisibility visibility(view.camera, stamp, octree.transform);
                walkPlainly(
                    *octree.root, octree, visibility, [&](const CellData& cell) { expected.insert(&cell); },
                    [](const CellData&) {});
            }
        ASSERT_TRUE(outcomeOf(*dyn, stamp, *removals).loaded == expected) << "seed " << seed;
    }
}

} // namespace
