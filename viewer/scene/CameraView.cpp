#include "viewer/scene/CameraView.h"

#include <osg/Math>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

/// Share of the picture's half size that the data may fill.
constexpr double kFill = 0.95;

/// Distances of the clipping planes, world units. The camera draws between tighter ones.
constexpr double kNear = 1.0;
constexpr double kFar = 1e6;

constexpr std::pair<const char*, CameraView::Kind> kViews[] = {{"top", CameraView::TOP},
                                                               {"north", CameraView::NORTH},
                                                               {"iso", CameraView::ISO},
                                                               {"all", CameraView::ALL}};

/// Direction from the data to the eye, and up.
struct Direction
{
    osg::Vec3d back;
    osg::Vec3d up;
};

Direction direction(CameraView::Kind kind)
{
    switch (kind) {
    case CameraView::TOP:
        return {osg::Vec3d(0, 0, 1), osg::Vec3d(0, 1, 0)};
    case CameraView::NORTH:
        return {osg::Vec3d(0, -1, 0), osg::Vec3d(0, 0, 1)};
    default:
        break;
    }
    osg::Vec3d back(0.6, -1.0, 0.85);
    back.normalize();
    return {back, osg::Vec3d(0, 0, 1)};
}

/// The nearest camera in the given direction that has all corners of `bounds` in its picture: sideways it is
/// moved to where corners on both sides touch the edge.
Look frame(const osg::BoundingBoxd& bounds, const Direction& toEye, double aspect)
{
    osg::Vec3d right = toEye.up ^ toEye.back;
    right.normalize();
    const osg::Vec3d top = toEye.back ^ right;
    const double tanY = std::tan(osg::DegreesToRadians(kFieldOfView / 2)) * kFill;
    const osg::Vec3d sides[] = {right / (tanY * aspect), -right / (tanY * aspect), top / tanY, -top / tanY};
    // A corner at c from the centre is inside the edge on side s when (c - shift) * s <= distance - c * back.
    double reach[4];
    for (unsigned side = 0; side < 4; ++side) {
        reach[side] = std::numeric_limits<double>::lowest();
        for (unsigned i = 0; i < 8; ++i) {
            const osg::Vec3d corner = bounds.corner(i) - bounds.center();
            reach[side] = std::max(reach[side], corner * (sides[side] + toEye.back));
        }
    }
    double distance = std::max(reach[0] + reach[1], reach[2] + reach[3]) / 2;
    if (distance <= 0) distance = 10.0; // a single point: any distance frames it
    const osg::Vec3d center = bounds.center() + right * ((reach[0] - reach[1]) / 2 * tanY * aspect) +
                              top * ((reach[2] - reach[3]) / 2 * tanY);
    return {center + toEye.back * distance, center, toEye.up};
}

} // namespace

std::vector<std::string> namesOfViews()
{
    std::vector<std::string> names;
    for (const auto& [name, kind] : kViews)
        names.emplace_back(name);
    return names;
}

std::optional<CameraView> namedView(const std::string& name)
{
    for (const auto& [known, kind] : kViews)
        if (name == known) return CameraView{kind, {}};
    return std::nullopt;
}

Look lookAt(const CameraView& view, const osg::BoundingBoxd& bounds, double aspect)
{
    return view.kind == CameraView::LOOK ? view.look : frame(bounds, direction(view.kind), aspect);
}

osg::Matrixd projectionOf(const Lens& lens, double aspect)
{
    if (!lens.orthographic) return osg::Matrixd::perspective(kFieldOfView, aspect, kNear, kFar);
    const double up = lens.height / 2;
    return osg::Matrixd::ortho(-up * aspect, up * aspect, -up, up, kNear, kFar);
}

Lens orthographicLens(const Look& look, const osg::BoundingBoxd& bounds, double aspect)
{
    const osg::Matrixd view = osg::Matrixd::lookAt(look.eye, look.center, look.up);
    double reach = 0;
    for (unsigned i = 0; i < 8; ++i) {
        const osg::Vec3d corner = bounds.corner(i) * view;
        reach = std::max({reach, std::abs(corner.x()) / aspect, std::abs(corner.y())});
    }
    constexpr double kHeightOfAPoint = 10.0; // of a single point: any height frames it
    return {true, reach > 0 ? 2 * reach / kFill : kHeightOfAPoint};
}

Look withAllInFront(const Look& look, const osg::BoundingBoxd& bounds)
{
    osg::Vec3d back = look.eye - look.center;
    back.normalize();
    double missing = 0;
    for (unsigned i = 0; i < 8; ++i)
        missing = std::max(missing, (bounds.corner(i) - look.eye) * back + 2 * kNear);
    return {look.eye + back * missing, look.center, look.up};
}
