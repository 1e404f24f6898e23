#pragma once

#include "viewer/camera/Section.h"
#include "viewer/scene/Scene.h"

#include <osg/Camera>

/// The part of a section that a picture shows, seen along parallel lines and true to scale but for the
/// exaggeration. A value.
///
/// Places of the section are a distance from its beginning and a height, world units. Places in the picture
/// are from -1 to 1 across it, y up; aspect is width / height.
class SectionFrame
{
public:
    /// Shows all of the section between two heights of the world.
    SectionFrame(const Section& section, double low, double high, double aspect);

    /// Shows all of the scene's points between the ends of the section.
    static SectionFrame whole(const Section& section, const Scene& scene, double aspect);

    const Section& section() const { return _section; }

    /// The same part of another strip: as far from its middle.
    void setSection(const Section& section);

    osg::Vec2d at(const osg::Vec2d& place, double aspect) const;
    osg::Vec2d placeOf(const osg::Vec2d& at, double aspect) const;

    /// \name Other parts
    /// @{
    SectionFrame moved(const osg::Vec2d& way) const;

    /// Nearer to a place of the section, which stays where it is in the picture: the picture shows `part` of
    /// what it did.
    SectionFrame zoomed(const osg::Vec2d& target, double part) const;
    /// @}

    osg::Vec3d worldAt(const osg::Vec2d& at) const;
    osg::Vec2d of(const osg::Vec3d& world) const;

    /// The place of the section in the middle of the picture.
    const osg::Vec2d& middle() const { return _middle; }

    /// World units along the section from the picture's left to its right edge.
    double span() const { return _span; }

    /// Makes a camera draw it, by the aspect of its viewport: that it stands before the strip and sees
    /// nothing but that.
    void place(osg::Camera& camera) const;

private:
    Section _section;
    osg::Vec2d _middle; ///< of the picture, a place of the section
    double _span = 1;
};

/// Shows in the pictures of a camera what is between the planes alone, all of it as points, also where there
/// is a surface; none end that. World coordinates. May be called while draw threads use the camera's state of
/// before.
void clipPicture(osg::Camera& camera, const std::vector<osg::Vec4d>& planes);
