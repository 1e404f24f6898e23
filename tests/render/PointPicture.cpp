#include "tests/render/PointPicture.h"

#include <VelOsgDBBrx/LasReaderWriter.h>

#include <osg/Geode>

#include <cmath>

namespace {

std::vector<TestPoint> placedInARow(std::vector<TestPoint> points)
{
    for (size_t i = 0; i < points.size(); ++i) {
        points[i].x = static_cast<int32_t>(i) * 1000 + 500;
        points[i].y = PointPicture::kRow * 1000 + 500;
    }
    return points;
}

} // namespace

PointView PointView::oblique(bool perspective)
{
    PointView view;
    view.model =
        osg::Matrixd::rotate(0.7, osg::Vec3d(1, 2, 3)) *
        osg::Matrixd::translate(perspective ? PointPicture::kOrigin : osg::Vec3d(-16.25, -16.5, 3.125));
    const osg::Vec3d middle = osg::Vec3d(PointPicture::kSize, PointPicture::kSize, 0) / 2 * view.model;
    view.view.makeLookAt(middle + osg::Vec3d(70, -90, 60), middle, osg::Vec3d(0.1, 0, 1));
    if (perspective)
        view.projection.makePerspective(22, 1, 1, 1000);
    else
        view.projection.makeOrtho(-24, 24, -24, 24, 1, 1000);
    return view;
}

osg::Vec3d PointView::world(const TestPoint& point) const
{
    return osg::Vec3d(point.x, point.y, point.z) * 0.001 * model;
}

std::optional<osg::Vec2i> PointView::pixelOf(const TestPoint& point) const
{
    constexpr double kMargin = 0.05;
    const osg::Vec3d seen = world(point) * view * projection;
    osg::Vec2i pixel;
    for (int axis = 0; axis < 2; ++axis) {
        const double place = (seen[axis] + 1) / 2 * PointPicture::kSize;
        pixel[axis] = static_cast<int>(std::floor(place));
        const double inside = place - pixel[axis];
        if (std::abs(seen[axis]) > 1 || inside < kMargin || inside > 1 - kMargin) return std::nullopt;
    }
    return pixel;
}

PointPicture::PointPicture(std::vector<TestPoint> points, const std::vector<osg::Vec4f>& normals)
    : PointPicture(AsGiven{placedInARow(std::move(points))}, normals)
{
}

PointPicture::PointPicture(const AsGiven& given, const std::vector<osg::Vec4f>& normals)
    : fixture(given.points, kOrigin), viewer(kSize, kSize), root(new osg::MatrixTransform),
      cloud(new PointCloudImpl(new PointCloudLOD(fixture.octree))), _count(given.points.size())
{
    if (!normals.empty()) fixture.writeNormals(normals);
    cells().addChild(VelOsgDBBrx::LasReaderWriter::read(fixture.wholeCell()));
    root->setMatrix(osg::Matrixd::translate(kOrigin));
    root->addChild(cloud);

    osg::Camera& camera = viewer.camera();
    camera.setClearColor(osg::Vec4(10 / 255.0f, 20 / 255.0f, 30 / 255.0f, 1));
    camera.setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    camera.setViewMatrix(osg::Matrixd::translate(-kOrigin));
    camera.setProjectionMatrixAsOrtho(0, kSize, 0, kSize, -1000, 1000);
    viewer.show(root);
}

void PointPicture::lookInPerspective()
{
    constexpr double kFieldOfView = 30;
    const double height = kSize / 2 / std::tan(osg::DegreesToRadians(kFieldOfView / 2));
    const osg::Vec3d middle = kOrigin + osg::Vec3d(kSize / 2, kSize / 2, 0);
    viewer.camera().setViewMatrixAsLookAt(middle + osg::Vec3d(0, 0, height), middle, osg::Y_AXIS);
    viewer.camera().setProjectionMatrixAsPerspective(kFieldOfView, 1, 10, 100);
}

void PointPicture::look(const PointView& from)
{
    root->setMatrix(from.model);
    viewer.camera().setViewMatrix(from.view);
    viewer.camera().setProjectionMatrix(from.projection);
}

PointCloudLOD& PointPicture::cells()
{
    return dynamic_cast<PointCloudLOD&>(*cloud->getChild(0));
}

osg::Geometry& PointPicture::geometry()
{
    return *cells().getChild(0)->asGeode()->getDrawable(0)->asGeometry();
}

osg::Vec3ub PointPicture::at(int x, int y)
{
    return pixel(*picture, x, y);
}

std::vector<osg::Vec3ub> PointPicture::draw()
{
    picture = viewer.picture();
    std::vector<osg::Vec3ub> colors;
    for (size_t i = 0; i < _count && static_cast<int>(i) < picture->s(); ++i)
        colors.push_back(at(static_cast<int>(i), kRow));
    return colors;
}

osg::ref_ptr<PointCloudImpl> makeCloud(const CellFixture& fixture)
{
    osg::ref_ptr<PointCloudLOD> lod = new PointCloudLOD(fixture.octree);
    lod->addChild(VelOsgDBBrx::LasReaderWriter::read(fixture.wholeCell()));
    return new PointCloudImpl(lod);
}

TestPoint coloredPoint(int red, int green, int blue)
{
    TestPoint point;
    point.red = wide(red);
    point.green = wide(green);
    point.blue = wide(blue);
    return point;
}

TestPoint coloredPoint(const osg::Vec3ub& color)
{
    return coloredPoint(color.r(), color.g(), color.b());
}

TestPoint placed(TestPoint point, int32_t x, int32_t y, int32_t z)
{
    point.x = x;
    point.y = y;
    point.z = z;
    return point;
}
