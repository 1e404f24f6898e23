#pragma once

#include "viewer/scene/CameraView.h"

#include <osg/Quat>
#include <osg/Vec2d>
#include <osg/Vec3d>

/// Where the camera of a picture stands, and how it projects: what people move about in. A value, world
/// coordinates in double precision.
///
/// The centre lies straight ahead, at `distance`. A picture shows the same there in perspective and
/// orthographic: `height` world units from its lower to its upper edge. Places in a picture are from -1 to 1
/// across it, y up; aspect is width / height.
class Pose
{
public:
    Pose() = default;

    /// Of an orthographic lens the height counts, and gives the distance.
    Pose(const Look& look, const Lens& lens);

    Look look() const { return {eye(), _center, up()}; }
    Lens lens() const { return {_orthographic, height()}; }

    const osg::Vec3d& center() const { return _center; }
    osg::Vec3d eye() const { return _center - ahead() * _distance; }
    osg::Vec3d ahead() const { return _rotation * osg::Vec3d(0, 0, -1); }
    osg::Vec3d right() const { return _rotation * osg::Vec3d(1, 0, 0); }
    osg::Vec3d up() const { return _rotation * osg::Vec3d(0, 1, 0); }
    double distance() const { return _distance; }
    double height() const;
    bool orthographic() const { return _orthographic; }

    /// The world under a place of the picture, as deep as the centre.
    osg::Vec3d worldAt(const osg::Vec2d& place, double aspect) const;

    /// \name Other poses
    /// @{
    /// The same picture, with the centre as deep as a place in the world. One behind a perspective's eye
    /// changes nothing.
    Pose focusedOn(const osg::Vec3d& world) const;

    /// Turned about a place, which stays where it is in the picture, by angles in radians: about the vertical
    /// and up to straight up and down, or freely, as the picture stands.
    Pose turnedLevel(const osg::Vec3d& pivot, double toTheLeft, double upwards) const;
    Pose turnedFreely(const osg::Vec3d& pivot, double toTheLeft, double upwards) const;

    Pose moved(const osg::Vec3d& way) const;

    /// Nearer to a place, which stays where it is in the picture: all distances to it become this part.
    Pose zoomed(const osg::Vec3d& target, double part) const;

    /// With the horizon level, looking at the centre from where it is.
    Pose leveled() const;

    Pose projected(bool orthographic) const;

    /// Looks as now, at all of `bounds`.
    Pose fitted(const osg::BoundingBoxd& bounds, double aspect) const;

    /// On the way from this pose to another one of the same projection; 0 is this one, 1 the other.
    Pose between(const Pose& other, double share) const;
    /// @}

    bool operator==(const Pose& other) const;
    bool operator!=(const Pose& other) const { return !(*this == other); }

private:
    Pose rotated(const osg::Vec3d& pivot, const osg::Quat& rotation) const;

    osg::Vec3d _center;
    osg::Quat _rotation; ///< of the eye's axes to the world's
    double _distance = 1;
    bool _orthographic = false;
};
