#pragma once

#include "render/PointCloudImpl.h"
#include "tests/support/CellFixture.h"
#include "tests/support/HeadlessViewer.h"

#include <osg/Geometry>
#include <osg/Group>
#include <osg/MatrixTransform>
#include <osg/Vec2i>
#include <osg/Vec3ub>

#include <optional>
#include <ostream>
#include <vector>

namespace osg {
inline void PrintTo(const Vec3ub& color, std::ostream* out)
{
    *out << "rgb(" << int(color.r()) << ", " << int(color.g()) << ", " << int(color.b()) << ")";
}
} // namespace osg

/// Where a cloud stands in the world and how it is looked at.
struct PointView
{
    osg::Matrixd model; ///< local to world
    osg::Matrixd view;
    osg::Matrixd projection;

    /// From aside, with the cloud turned: no axis of the cloud, the world and the picture lies along another.
    /// In perspective at the coordinates of a real survey, without it around the world's origin.
    static PointView oblique(bool perspective);

    /// The world coordinates of a point that is given in millimetres.
    osg::Vec3d world(const TestPoint& point) const;

    /// The pixel of such a point; none where it is seen near the border of one or not at all.
    std::optional<osg::Vec2i> pixelOf(const TestPoint& point) const;
};

/// Draws the points of one cell, point i onto the middle of pixel (i, kRow) of a small picture, seen from
/// above. The cloud stands at the coordinates of a real survey, and a pixel is one metre.
class PointPicture
{
public:
    static constexpr int kSize = 32;
    static constexpr int kRow = 4;
    /// World coordinates of the picture's lower left corner.
    inline static const osg::Vec3d kOrigin = osg::Vec3d(512345.678, 5412345.25, 123.5);
    inline static const osg::Vec3ub kBackground = osg::Vec3ub(10, 20, 30);

    /// Sets the points' x and y; z stays as given, in millimetres above the origin.
    explicit PointPicture(std::vector<TestPoint> points, const std::vector<osg::Vec4f>& normals = {});

    /// Leaves the points where they are, in millimetres from the origin.
    struct AsGiven
    {
        std::vector<TestPoint> points;
    };
    explicit PointPicture(const AsGiven& points, const std::vector<osg::Vec4f>& normals = {});

    /// Looks straight down with a field of view that holds the same square metres of the plane z = 0.
    void lookInPerspective();

    void look(const PointView& from);

    osg::Vec3ub at(int x, int y);

    /// Draws a frame and gives the pixels of the points of the row.
    std::vector<osg::Vec3ub> draw();

    PointCloudLOD& cells();    ///< parent of the leaves
    osg::Geometry& geometry(); ///< of the first leaf

    CellFixture fixture;
    HeadlessViewer viewer;
    osg::ref_ptr<osg::MatrixTransform> root; ///< stands for the host's scene
    osg::ref_ptr<PointCloudImpl> cloud;      ///< the point cloud node
    osg::ref_ptr<osg::Image> picture;        ///< of the last frame

private:
    size_t _count;
};

/// A colour that 8 bits hold exactly, as the 16 bits of a record.
inline uint16_t wide(int value)
{
    return static_cast<uint16_t>(value * 257);
}

/// A point cloud node that shows the points of a fixture.
osg::ref_ptr<PointCloudImpl> makeCloud(const CellFixture& fixture);

TestPoint coloredPoint(int red, int green, int blue);
TestPoint coloredPoint(const osg::Vec3ub& color);

/// A point moved to a place in millimetres from the origin.
TestPoint placed(TestPoint point, int32_t x, int32_t y, int32_t z = 0);
