#include "viewer/scene/CameraView.h"

#include <osg/Math>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace {

/// Share of the picture's half size that the data may fill.
constexpr double kFill = 0.95;

/// Distances of the clipping planes, world units. The camera draws between tighter ones.
constexpr double kNear = 1.0;
constexpr double kFar = 1e6;

/// A view by name: the direction from the data to the eye, and up.
struct NamedView
{
    const char* name;
    CameraView::Kind kind;
    osg::Vec3d back;
    osg::Vec3d up;
};

const NamedView kViews[] = {{"top", CameraView::TOP, {0, 0, 1}, {0, 1, 0}},
                            {"bottom", CameraView::BOTTOM, {0, 0, -1}, {0, 1, 0}},
                            {"north", CameraView::NORTH, {0, -1, 0}, {0, 0, 1}},
                            {"south", CameraView::SOUTH, {0, 1, 0}, {0, 0, 1}},
                            {"east", CameraView::EAST, {-1, 0, 0}, {0, 0, 1}},
                            {"west", CameraView::WEST, {1, 0, 0}, {0, 0, 1}},
                            {"iso", CameraView::ISO, {0.6, -1, 0.85}, {0, 0, 1}},
                            {"all", CameraView::ALL, {0.6, -1, 0.85}, {0, 0, 1}}};

const NamedView& find(CameraView::Kind kind)
{
    return *std::find_if(std::begin(kViews), std::end(kViews),
                         [kind](const NamedView& view) { return view.kind == kind; });
}

} // namespace

std::vector<std::string> namesOfViews()
{
    std::vector<std::string> names;
    for (const NamedView& view : kViews)
        names.emplace_back(view.name);
    return names;
}

std::optional<CameraView> namedView(const std::string& name)
{
    for (const NamedView& view : kViews)
        if (name == view.name) return CameraView{view.kind, {}};
    return std::nullopt;
}

Look framed(const osg::BoundingBoxd& bounds, const osg::Vec3d& toEye, const osg::Vec3d& up, double aspect)
{
    osg::Vec3d back = toEye;
    back.normalize();
    osg::Vec3d right = up ^ back;
    right.normalize();
    const osg::Vec3d top = back ^ right;
    const double tanY = std::tan(osg::DegreesToRadians(kFieldOfView / 2)) * kFill;
    const osg::Vec3d sides[] = {right / (tanY * aspect), -right / (tanY * aspect), top / tanY, -top / tanY};
    // A corner at c from the centre is inside the edge on side s when (c - shift) * s <= distance - c * back.
    double reach[4];
    for (unsigned side = 0; side < 4; ++side) {
        reach[side] = std::numeric_limits<double>::lowest();
        for (unsigned i = 0; i < 8; ++i) {
            const osg::Vec3d corner = bounds.corner(i) - bounds.center();
            reach[side] = std::max(reach[side], corner * (sides[side] + back));
        }
    }
    double distance = std::max(reach[0] + reach[1], reach[2] + reach[3]) / 2;
    if (distance <= 0) distance = 10.0; // a single point: any distance frames it
    const osg::Vec3d center = bounds.center() + right * ((reach[0] - reach[1]) / 2 * tanY * aspect) +
                              top * ((reach[2] - reach[3]) / 2 * tanY);
    return {center + back * distance, center, up};
}

Look lookAt(const CameraView& view, const osg::BoundingBoxd& bounds, double aspect)
{
    if (view.kind == CameraView::LOOK) return view.look;
    const NamedView& named = find(view.kind);
    return framed(bounds, named.back, named.up, aspect);
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
