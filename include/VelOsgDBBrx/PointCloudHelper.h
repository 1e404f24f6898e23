#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/BoundingBox>
#include <osg/Node>
#include <osg/Vec2f>
#include <osg/Vec4d>
#include <osg/Vec4f>

#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

namespace VelOsgDBBrx {

/// Display settings of point clouds, without their uniforms' names. Each function sets state on `node`, a
/// point cloud or anything above some, and holds for every cloud below it that has no setting of its own; a
/// null node is ignored. What is never set has a default: size 1, culled points hidden, everything else off.
///
/// Planes are (a, b, c, d) in world coordinates; a point is inside where a x + b y + c z + d >= 0. All kinds
/// of clipping apply together, fixed-function clip planes (`osg::ClipNode`) included.
///
/// Call these where the scene may be changed: between frames or in the update traversal.
class VEL_OSGDB_BRX_EXPORT PointCloudHelper
{
public:
    static void setPointSize(osg::Node* node, int pixels);

    /// Makes points as large as the space between them, so that surfaces are closed from near and stay fine
    /// from afar: the distance of neighbouring points in the finest cell that is drawn there, as it projects,
    /// times `factor`, from `smallest` to `largest` pixels, whatever `setPointSize` says. Graphics cards
    /// limit sizes, and eye-dome lighting is right up to 64. A factor of 0 gives the fixed size again.
    /// Geometry that is in no cloud keeps its size.
    static void setPointSizeBySpacing(osg::Node* node, double factor = 2, int smallest = 1, int largest = 32);

    /// Identifier of the clouds below the node in picks; see `PointPicker`.
    static void setPointCloudId(osg::Node* node, uint64_t id);

    /// \name Brightness and contrast of the colours, intensity mode excepted
    /// @{
    /// A channel c in [0, 1] becomes (c - 0.5) contrast + 0.5 + brightness, kept in [0, 1].
    static void setBrightnessContrast(osg::Node* node, float brightness, float contrast);

    /// A channel of 0 to 255 becomes the table's entry, 0 to 255.
    static void setBrightnessTable(osg::Node* node, const std::array<float, 256>& table);

    static void resetBrightness(osg::Node* node);
    /// @}

    /// \name Eye-dome lighting
    /// How clouds are shaded where `ShaderHelper::switchEDLShader` has switched it on, before or after this
    /// call.
    /// @{
    /// `strength` multiplies the differences of depth in the depth buffer, which depend on its near and far
    /// plane; `radius` is the neighbourhood's, pixels. Both are 2 where nothing is set.
    static void setEyeDomeLighting(osg::Node* node, float strength, float radius);

    /// Shades by the slope of what is seen: alike from far and near, in perspective and orthographic
    /// pictures, and with the eye among the points. A point keeps at least the share exp(-strength) of its
    /// brightness.
    static void setBalancedEyeDomeLighting(osg::Node* node, float strength = 1, float radius = 2);
    /// @}

    /// \name Light on the points' normals, in every colour mode
    /// Lights the side of a surface that is seen, whichever way its normal points. Points without a normal,
    /// and all of stores without normals, keep their colour.
    /// @{
    /// From the eye.
    static void setHeadLight(osg::Node* node);

    /// From afar: `azimuth` degrees clockwise from the world's y axis, `height` degrees above the horizon.
    static void setSunLight(osg::Node* node, double azimuth, double height);

    static void setLightOff(osg::Node* node);
    /// @}

    /// \name Culled points
    /// @{
    static void hideCulledPoints(osg::Node* node);
    static void showCulledPoints(osg::Node* node, const osg::Vec4f& color);
    /// @}

    /// \name Clip box: points outside any of up to eight planes are hidden
    /// @{
    /// An invalid box takes the clip box away.
    static void setClipBox(osg::Node* node, const osg::BoundingBoxd& box);

    /// False, and nothing changes, with more than eight planes; none take the clip box away.
    static bool setClipBox(osg::Node* node, const std::vector<osg::Vec4d>& planes);
    /// @}

    /// \name Section planes: points outside every group of planes are hidden
    /// A point is inside a group when it is inside each of its planes.
    /// @{
    /// `planes` holds consecutive groups of `planesPerGroup`; `offset` is added to each of them. Planes are
    /// kept as floats, the offset as double: at world coordinates of seven digits a plane alone is good to
    /// about half a metre, and a clip box or `setClipPlane` exact. False, and nothing changes, when `planes`
    /// are not whole groups.
    static bool setSectionPlanes(osg::Node* node, const std::vector<osg::Vec4f>& planes, int planesPerGroup,
                                 const osg::Vec4d& offset = osg::Vec4d());
    static void clearSectionPlanes(osg::Node* node);
    /// @}

    /// Shows only points whose normal is at least 60 degrees off the view axis. Points without a normal stay.
    static void setNormalFilter(osg::Node* node, bool active);

    /// Shows only points of these classes, in every colour mode; all classes take the filter away. A mode's
    /// own colour of alpha 0 hides a class as well.
    static void setShownClasses(osg::Node* node, const std::bitset<256>& classes);

    /// \name Enhanced line: points inside a polygon seen from above stand out by colour and size
    /// @{
    /// `polygon` is in world x and y, closed implicitly, and kept as floats: at world coordinates of seven
    /// digits it is good to about half a metre. The elevation mode always draws these points at size 10.
    static void setEnhancedLine(osg::Node* node, const std::vector<osg::Vec2f>& polygon,
                                const osg::Vec4f& color, int pixels);
    static void clearEnhancedLine(osg::Node* node);
    /// @}

    /// Hides the points outside any of the planes, of every point cloud that is at or below the node now,
    /// from now on and in double precision (see `IPointCloud::setPlanes`). The planes belong to the clouds: a
    /// later call replaces them, whichever node it is for, and no planes show all points. Any number is
    /// possible; each costs every point a test. Commands that edit points take the planes they respect from
    /// their caller.
    static void setClipPlane(osg::Node* node, const std::vector<osg::Vec4d>& planes);
};

} // namespace VelOsgDBBrx
