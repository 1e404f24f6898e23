#include "lod/CellVisibility.h"

#include "tests/support/HandOctree.h"

#include <VelOsgDBBrx/FrameStamp.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include <osg/Plane>
#include <osg/Polytope>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using VelOsgDBBrx::FrameStamp;

/// The cell tests as they are stated, one cell at a time and nothing worked out beforehand.
class StatedTest
{
public:
    StatedTest(const FrameStamp& stamp, const OctreeInfo& octree) : _stamp(stamp), _octree(octree) {}

    int camera(const CellData& cell) const
    {
        const osg::Matrixd& matrix = _octree.transform;
        osg::Polytope frustum;
        frustum.setToUnitFrustum(false, false);
        frustum.transformProvidingInverse(matrix * _stamp.view * _stamp.projection);
        const std::vector<osg::Vec3f> corners = box(cell);
        for (const osg::Plane& plane : frustum.getPlaneList())
            if (plane.intersect(corners) < 0) return 0;
        const double projected = scale(cell) * cell.record.resolutionLength;
        if (2 * projected < 1.0) return 0;

        if (_stamp.planesPerGroup < 1) return 2;
        return insideRegion(cell) ? 2 : 1;
    }

    int fixed(const CellData& cell) const { return _stamp.planesPerGroup >= 1 && insideRegion(cell) ? 2 : 1; }

    /// The shortest resolution length that the size test lets pass.
    double leastResolutionLength(const CellData& cell) const
    {
        const auto passes = [scale = scale(cell)](double length) { return 2 * (scale * length) >= 1.0; };
        double length = 0.5 / scale(cell);
        while (passes(length))
            length = std::nextafter(length, 0.0);
        while (!passes(length))
            length = std::nextafter(length, 1e9);
        return length;
    }

private:
    /// Pixels a unit.
    double scale(const CellData& cell) const
    {
        double fieldOfView = 0, aspect = 0, left, right, bottom, top, near, far;
        if (_stamp.projection.getPerspective(fieldOfView, aspect, near, far)) {
            osg::Vec3d eye, center, up;
            _stamp.view.getLookAt(eye, center, up, 1.0);
            osg::Vec3d direction = center - eye;
            if (direction.length() > 0) direction.normalize();
            const osg::Vec3d c = osg::Vec3d(localCenter(cell)) * _octree.transform;
            const float depth = osg::Vec3f(c - eye) * osg::Vec3f(direction);
            return _stamp.height / std::fabs(std::tan(fieldOfView / 3.1415926) * depth);
        }
        _stamp.projection.getOrtho(left, right, bottom, top, near, far);
        return _stamp.height / std::fabs(top - bottom);
    }

    osg::Vec3f localCenter(const CellData& cell) const
    {
        osg::Vec3f center;
        for (int axis = 0; axis < 3; ++axis)
            center[axis] = static_cast<float>(cell.record.center[axis] - _octree.offset[axis]);
        return center;
    }

    std::vector<osg::Vec3f> box(const CellData& cell) const
    {
        const osg::Vec3f center = localCenter(cell);
        const osg::Vec3f half(cell.record.size[0] / 2, cell.record.size[1] / 2, cell.record.size[2] / 2);
        const osg::Vec3f a = center - half;
        const osg::Vec3f b = center + half;
        return {{a.x(), a.y(), a.z()}, {b.x(), a.y(), a.z()}, {b.x(), b.y(), a.z()}, {a.x(), b.y(), a.z()},
                {a.x(), a.y(), b.z()}, {b.x(), a.y(), b.z()}, {b.x(), b.y(), b.z()}, {a.x(), b.y(), b.z()}};
    }

    bool insideRegion(const CellData& cell) const
    {
        std::vector<osg::Vec3f> corners = box(cell);
        for (osg::Vec3f& corner : corners)
            corner = _octree.transform.preMult(corner);
        const size_t n = static_cast<size_t>(_stamp.planesPerGroup);
        for (size_t group = 0; group < _stamp.planes.size() / n; ++group) {
            bool inside = true;
            for (size_t i = 0; i < n; ++i)
                inside = inside && osg::Plane(_stamp.planes[group * n + i]).intersect(corners) >= 0;
            if (inside) return true;
        }
        return false;
    }

    const FrameStamp& _stamp;
    const OctreeInfo& _octree;
};

class RandomScene
{
public:
    explicit RandomScene(unsigned seed) : _random(seed)
    {
        const osg::Vec3d offset(500000.125, 4500000.5, 80);
        octree = handOctree(fullTree(5, offset + osg::Vec3d(3, 7, 1), 100), offset);
        octree->transform = osg::Matrixd::rotate(uniform(0, 6), osg::Vec3d(1, 2, 3)) *
                            osg::Matrixd::scale(uniform(0.5, 2), uniform(0.5, 2), uniform(0.5, 2)) *
                            osg::Matrixd::translate(offset);
        const osg::Vec3d eye =
            offset + osg::Vec3d(uniform(-150, 150), uniform(-150, 150), uniform(-150, 150));
        stamp->view.makeLookAt(eye, offset + osg::Vec3d(uniform(-60, 60), uniform(-60, 60), uniform(-60, 60)),
                               osg::Vec3d(0, 0, 1));
        if (seed % 3)
            stamp->projection.makePerspective(uniform(10, 90), uniform(0.5, 2), 0.1, 1000);
        else
            stamp->projection.makeOrtho(-uniform(5, 80), uniform(5, 80), -uniform(5, 80), uniform(5, 80), 1,
                                        1000);
        stamp->height = static_cast<int>(uniform(10, 1000));
        stamp->planesPerGroup = static_cast<int>(seed % 4) * (seed % 2);
        for (unsigned i = 0; i < seed % 7; ++i) {
            osg::Vec3d normal(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1));
            stamp->planes.emplace_back(normal, -(normal * (offset + osg::Vec3d(uniform(-30, 30), 0, 0))));
        }
        stamp->octrees = {octree};
        // Fills the camera fields; nothing is loaded, because no level but an empty one fits.
        stamp->maxNumOfPointCloud = 0;
    }

    double uniform(double from, double to)
    {
        return std::uniform_real_distribution<double>(from, to)(_random);
    }

    osg::ref_ptr<OctreeInfo> octree;
    osg::ref_ptr<FrameStamp> stamp = new FrameStamp;

private:
    std::mt19937 _random;
};

TEST(CellVisibility, AgreesWithTheStatedTestsOnRandomCellsAndCameras)
{
    const osg::ref_ptr<VelOsgDBBrx::DynPointCloudLod> pass =
        new VelOsgDBBrx::DynPointCloudLod(nullptr, nullptr);
    size_t answers[3] = {0, 0, 0};
    size_t sizesTested = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        RandomScene scene(seed);
        (*pass)(scene.stamp);
        const StatedTest stated(*scene.stamp, *scene.octree);
        const CameraVisibility camera(scene.stamp->mainCamera(), *scene.stamp, scene.octree->transform);
        const RegionVisibility region(*scene.stamp, scene.octree->transform);
        const osg::ref_ptr<CellTable> table = new CellTable(*scene.octree);
        for (size_t i = 0; i < table->cells.size(); ++i) {
            const CellTable::Cell& cell = table->cells[i];
            const CellData& data = table->data(i);
            const int answer = camera.checkCellIsVisiable(cell);
            ASSERT_EQ(answer, stated.camera(data)) << "seed " << seed << ", " << data.identifier;
            ASSERT_EQ(region.checkCellIsVisiable(cell), stated.fixed(data)) << "seed " << seed;
            ++answers[answer];

            CellTable::Cell resized = cell;
            resized.resolutionLength = 1e9;
            if (camera.checkCellIsVisiable(resized) == 0) continue; // outside the frustum
            resized.resolutionLength = stated.leastResolutionLength(data);
            ASSERT_NE(camera.checkCellIsVisiable(resized), 0) << "seed " << seed << ", half a pixel";
            resized.resolutionLength = std::nextafter(resized.resolutionLength, 0.0);
            ASSERT_EQ(camera.checkCellIsVisiable(resized), 0) << "seed " << seed << ", a bit below";
            ++sizesTested;
        }
    }
    EXPECT_GT(answers[0], 1000u);
    EXPECT_GT(answers[1], 1000u);
    EXPECT_GT(answers[2], 1000u);
    EXPECT_GT(sizesTested, 1000u);
}

TEST(CellVisibility, ABoxThatOnlyTouchesAPlaneFromOutsideIsOutside)
{
    const osg::ref_ptr<FrameStamp> stamp = new FrameStamp;
    stamp->height = 64; // one pixel is one unit
    stamp->view.makeLookAt(osg::Vec3d(0, 0, 50), osg::Vec3d(), osg::Vec3d(0, 1, 0));
    stamp->projection.makeOrtho(-32, 32, -32, 32, 1, 100);
    const auto answer = [&](double x, double y) { // for a box of 8 units
        std::vector<VelBrx::CellWithSegment> records = fullTree(1, osg::Vec3d(x, y, 0), 8);
        records[0].resolutionLength = 1;
        const osg::ref_ptr<CellTable> table = new CellTable(*handOctree(records));
        return CameraVisibility(stamp->mainCamera(), *stamp, osg::Matrixd())
            .checkCellIsVisiable(table->cells[0]);
    };
    for (const auto& [x, y] : {std::pair(1, 0), std::pair(-1, 0), std::pair(0, 1), std::pair(0, -1)}) {
        EXPECT_EQ(answer(36 * x, 36 * y), 0) << x << ", " << y;
        EXPECT_EQ(answer(35.9999 * x, 35.9999 * y), 2) << x << ", " << y;
    }
    stamp->planesPerGroup = 1;
    stamp->planes = {osg::Vec4d(1, 0, 0, -4)};
    EXPECT_EQ(answer(0, 0), 1);
    EXPECT_EQ(answer(0.0001, 0), 2);
}

} // namespace
