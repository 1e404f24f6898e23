#pragma once

#include <VelOsgDBBrx/ColorScale.h>
#include <VelOsgDBBrx/Export.h>

#include <osg/Node>
#include <osg/Vec2f>
#include <osg/Vec4f>

#include <cstdint>
#include <vector>

namespace VelOsgDBBrx {

/// One stop of a gradient. Its 32 bytes are the std430 layout of the shaders' struct of the same content.
struct ColorEntry
{
    osg::Vec4f color;
    float position = 0; ///< in [0, 1]
    float padding[3] = {0, 0, 0};
};
static_assert(sizeof(ColorEntry) == 32, "gradient stops are copied byte for byte into a storage buffer");

/// A gradient and the range of values that it covers.
struct ColorWithRangeInfo
{
    std::vector<ColorEntry> entries; ///< in ascending position; fewer than two are no gradient
    osg::Vec2f range;                ///< x: value at position 0; y: span of values over [0, 1]
    bool isCircle = false;           ///< the gradient repeats beyond the range (elevation modes)
    uint16_t intensityMin = 0;       ///< range of the intensity blended into the elevation mode
    uint16_t intensityMax = 65535;
};

/// Puts the shader program of a colour mode, with the uniforms and buffers it needs, onto the state set of a
/// point-cloud node; calling another mode replaces the program. A null node is ignored, and so is a gradient
/// of fewer than two entries.
///
/// Call these where the scene may be changed: between frames or in the update traversal.
class VEL_OSGDB_BRX_EXPORT ShaderHelper
{
public:
    /// The points' stored colour.
    static void originColorShader(osg::Node* node);

    static void singleColorShader(osg::Node* node, const osg::Vec4f& color);

    /// Intensity, 0 to 1 for the stored 0 to 65535, through the gradient.
    static void intensityShader(osg::Node* node, ColorWithRangeInfo& info);

    /// Global z through the gradient; `blendIntensity` darkens it by the points' intensity. The blend goes on
    /// in modes chosen later, the intensity mode excepted, until this one is called without it.
    static void elevationColorShader(osg::Node* node, ColorWithRangeInfo& info, bool blendIntensity);

    /// \name Colour tables
    /// An attribute of the point is the index into `colors`. Of a longer table the first 256 colours are
    /// used; indices beyond a shorter one are black. A colour of alpha 0 hides its points.
    /// @{
    static void classificationColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors);

    /// Ids above 255 have the last colour.
    static void pointSourceIDColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors);

    static void returnNumberColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors);
    static void numbersReturnColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors);

    /// Of a cloud's points the flight line is the point source id modulo 256, so that neighbouring lines
    /// differ whatever number a survey begins to count from. Geometry that is under no cloud has it as a
    /// float attribute at location 11, pinned to 0 ... 255, and GPS time at location 12.
    static void flightLineColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors);
    /// @}

    /// GPS time, as the store holds it, through the first 256 elements of the scale. Times outside the scale
    /// are black; a scale of fewer than two elements is ignored. Times and scale are compared as floats,
    /// which resolve 1/16 s in a GPS week and 32 s in adjusted standard time.
    static void gpsTimeColorShader(osg::Node* node, ColorScale& scale);

    /// The colour of the point's mark, which `EditLens` gives it: `colors[mark]`, marks beyond have the last
    /// colour. Points that have a mark and are hidden are drawn too, darker. An empty list is ignored.
    static void changedColorShader(osg::Node* node, const std::vector<osg::Vec4f>& colors);

    /// \name Triangle meshes in the colours of a point cloud
    /// For triangles, lit by the first fixed-function light, whichever way they face. Class codes are an int
    /// attribute at location 13, in an array that preserves its data type. The drawables that are below the
    /// node now get a draw callback that hands their place in the world to the program, unless they have one
    /// of their own. These programs write no picking outputs.
    /// @{
    static void elevationColorShaderWithLight(osg::Node* node, ColorWithRangeInfo& info);
    static void classificationColorShaderWithLight(osg::Node* node, std::vector<osg::Vec4f>& colors);
    /// @}

    /// \name The same for constants and temporaries
    /// @{
    static void intensityShader(osg::Node* node, const ColorWithRangeInfo& info)
    {
        ColorWithRangeInfo copy = info;
        intensityShader(node, copy);
    }
    static void elevationColorShader(osg::Node* node, const ColorWithRangeInfo& info, bool blendIntensity)
    {
        ColorWithRangeInfo copy = info;
        elevationColorShader(node, copy, blendIntensity);
    }
    static void elevationColorShaderWithLight(osg::Node* node, const ColorWithRangeInfo& info)
    {
        ColorWithRangeInfo copy = info;
        elevationColorShaderWithLight(node, copy);
    }
    static void gpsTimeColorShader(osg::Node* node, const ColorScale& scale)
    {
        ColorScale copy = scale;
        gpsTimeColorShader(node, copy);
    }
    static void classificationColorShader(osg::Node* node, const std::vector<osg::Vec4f>& colors)
    {
        std::vector<osg::Vec4f> copy = colors;
        classificationColorShader(node, copy);
    }
    static void pointSourceIDColorShader(osg::Node* node, const std::vector<osg::Vec4f>& colors)
    {
        std::vector<osg::Vec4f> copy = colors;
        pointSourceIDColorShader(node, copy);
    }
    static void returnNumberColorShader(osg::Node* node, const std::vector<osg::Vec4f>& colors)
    {
        std::vector<osg::Vec4f> copy = colors;
        returnNumberColorShader(node, copy);
    }
    static void numbersReturnColorShader(osg::Node* node, const std::vector<osg::Vec4f>& colors)
    {
        std::vector<osg::Vec4f> copy = colors;
        numbersReturnColorShader(node, copy);
    }
    static void flightLineColorShader(osg::Node* node, const std::vector<osg::Vec4f>& colors)
    {
        std::vector<osg::Vec4f> copy = colors;
        flightLineColorShader(node, copy);
    }
    static void classificationColorShaderWithLight(osg::Node* node, const std::vector<osg::Vec4f>& colors)
    {
        std::vector<osg::Vec4f> copy = colors;
        classificationColorShaderWithLight(node, copy);
    }
    /// @}

    /// Switches eye-dome lighting of every point cloud at or below the node on or off.
    static void switchEDLShader(osg::Node* node, bool enable);

    /// Colour of selected points for mode functions called from now on.
    static void setSelectColor(const osg::Vec4f& color);
    static osg::Vec4f getSelectColor();

    /// Brings the current selection colour to a node that has a colour mode.
    static void applySelectColor(osg::Node* node);
};

} // namespace VelOsgDBBrx
