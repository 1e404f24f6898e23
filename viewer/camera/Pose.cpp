#include "viewer/camera/Pose.h"

#include <osg/Math>
#include <osg/Matrixd>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kNearest = 0.001; ///< world units between eye and centre
constexpr double kFarthest = 1e9;

/// World units from the lower to the upper edge of a picture, a unit ahead of the eye.
double heightPerDistance()
{
    return 2 * std::tan(osg::DegreesToRadians(kFieldOfView / 2));
}

osg::Quat rotationOf(const Look& look)
{
    return osg::Matrixd::inverse(osg::Matrixd::lookAt(osg::Vec3d(), look.center - look.eye, look.up))
        .getRotate();
}

const osg::Vec3d kVertical(0, 0, 1);

} // namespace

Pose::Pose(const Look& look, const Lens& lens)
    : _center(look.center), _rotation(rotationOf(look)), _distance((look.center - look.eye).length()),
      _orthographic(lens.orthographic)
{
    if (lens.orthographic && lens.height > 0) _distance = lens.height / heightPerDistance();
    _distance = std::clamp(_distance, kNearest, kFarthest);
}

double Pose::height() const
{
    return _distance * heightPerDistance();
}

osg::Vec3d Pose::worldAt(const osg::Vec2d& place, double aspect) const
{
    return _center + (right() * (place.x() * aspect) + up() * place.y()) * (height() / 2);
}

Pose Pose::focusedOn(const osg::Vec3d& world) const
{
    const double depth = (world - eye()) * ahead();
    Pose pose = *this;
    if (_orthographic) {
        pose._center += ahead() * (depth - _distance);
    } else if (depth > kNearest) {
        pose._center = eye() + ahead() * depth;
        pose._distance = depth;
    }
    return pose;
}

Pose Pose::rotated(const osg::Vec3d& pivot, const osg::Quat& rotation) const
{
    Pose pose = *this;
    pose._rotation = _rotation * rotation;
    pose._rotation /= pose._rotation.length(); // or rounding adds up
    pose._center = pivot + rotation * (_center - pivot);
    return pose;
}

Pose Pose::turnedLevel(const osg::Vec3d& pivot, double toTheLeft, double upwards) const
{
    const double height = std::asin(std::clamp(ahead().z(), -1.0, 1.0));
    const double tilt = std::clamp(height + upwards, -osg::PI_2, osg::PI_2) - height;
    return rotated(pivot, osg::Quat(tilt, right()) * osg::Quat(toTheLeft, kVertical));
}

Pose Pose::turnedFreely(const osg::Vec3d& pivot, double toTheLeft, double upwards) const
{
    return rotated(pivot, osg::Quat(upwards, right()) * osg::Quat(toTheLeft, up()));
}

Pose Pose::moved(const osg::Vec3d& way) const
{
    Pose pose = *this;
    pose._center += way;
    return pose;
}

Pose Pose::zoomed(const osg::Vec3d& target, double part) const
{
    Pose pose = focusedOn(target);
    const double distance = std::clamp(pose._distance * part, kNearest, kFarthest);
    pose._center = target + (pose._center - target) * (distance / pose._distance);
    pose._distance = distance;
    return pose;
}

Pose Pose::leveled() const
{
    // Straight down or up nothing but the picture tells which way is ahead.
    osg::Vec3d side = ahead() ^ kVertical;
    if (side.length2() < 1e-12) side = {right().x(), right().y(), 0};
    if (side.length2() < 1e-12) return *this;
    Pose pose = *this;
    pose._rotation = rotationOf({osg::Vec3d(), ahead(), side ^ ahead()});
    return pose;
}

Pose Pose::projected(bool orthographic) const
{
    Pose pose = *this;
    pose._orthographic = orthographic;
    return pose;
}

Pose Pose::fitted(const osg::BoundingBoxd& bounds, double aspect) const
{
    const Look all = framed(bounds, ahead() * -1, up(), aspect);
    return Pose(all, _orthographic ? orthographicLens(all, bounds, aspect) : Lens());
}

Pose Pose::between(const Pose& other, double share) const
{
    Pose pose = other;
    pose._center = _center + (other._center - _center) * share;
    pose._rotation.slerp(share, _rotation, other._rotation);
    pose._distance = _distance * std::pow(other._distance / _distance, share);
    return pose;
}

bool Pose::operator==(const Pose& other) const
{
    return _center == other._center && _rotation == other._rotation && _distance == other._distance &&
           _orthographic == other._orthographic;
}
