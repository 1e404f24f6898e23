#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Node>
#include <osg/Vec2d>
#include <osg/Vec4f>

#include <vector>

namespace VelOsgDBBrx {

/// Draws the points along a line larger and in a colour of their own, in every point colour mode: hands the
/// renderer a polygon in the ground plane. Stateless; call it where the scene may be changed: between frames
/// or in the update traversal.
class VEL_OSGDB_BRX_EXPORT LineHighlight
{
public:
    /// The outline of a polyline of `width`: its left side forth and its right side back, mitred. Same units
    /// and frame as the polyline. Empty for fewer than two different vertices or a width that is not above 0.
    static std::vector<osg::Vec2d> outline(const std::vector<osg::Vec2d>& polyline, double width);

    /// Highlights the points of `node` whose world (x, y) lies inside `polygon` by the even-odd rule.
    /// `pointSize` in pixels. A null node is ignored, fewer than three vertices switch the highlight off.
    ///
    /// The renderer keeps vertices in single precision: at coordinates of seven digits they are rounded to
    /// half a unit. A host that needs better places its clouds near the world's origin.
    static void show(osg::Node* node, const std::vector<osg::Vec2d>& polygon, const osg::Vec4f& color,
                     int pointSize);

    /// Switches the highlight off. A null node is ignored.
    static void hide(osg::Node* node);
};

} // namespace VelOsgDBBrx
