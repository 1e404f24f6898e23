#pragma once

#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osg/Vec4d>

#include <array>
#include <vector>

/// A vertical strip through the world, which a section shows from the side: `from` is on the left. World x
/// and y, world units.
struct Section
{
    osg::Vec2d from;
    osg::Vec2d to;
    double width = 1;        ///< across the line from end to end
    double exaggeration = 1; ///< heights are drawn so many times as large as distances

    /// A width for a line of this length: about a twentieth, a round number.
    static double widthFor(double length);

    double length() const { return (to - from).length(); }

    /// Directions on the map, of length 1: from end to end, and that in which one looks.
    osg::Vec2d along() const;
    osg::Vec2d ahead() const;

    /// The two sides of the strip; inside is between them. It goes on past its ends.
    std::vector<osg::Vec4d> planes() const;

    /// On the map, counter-clockwise from `from` on its right side.
    std::array<osg::Vec2d, 4> outline() const;

    /// Moved ahead by so many of its widths.
    Section stepped(double widths) const;

    /// Turned about its middle, counter-clockwise, degrees.
    Section turned(double degrees) const;

    bool operator==(const Section& other) const;
    bool operator!=(const Section& other) const { return !(*this == other); }
};
