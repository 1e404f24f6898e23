#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Vec4f>

#include <vector>

namespace VelOsgDBBrx {

/// Maps a scalar to a colour by linear interpolation between control points sorted by value. A value type;
/// one object is used by one thread at a time.
class VEL_OSGDB_BRX_EXPORT ColorScale
{
public:
    /// A control point.
    struct ColorScaleElement
    {
        double value;
        osg::Vec4f color; ///< RGBA in [0, 1]
    };

    ColorScale();
    ColorScale(const ColorScale& other);
    ColorScale& operator=(const ColorScale& other);
    virtual ~ColorScale();

    /// False, and nothing changes, when the scale already holds more than 256 elements.
    bool addColorScaleElement(double value, osg::Vec4f color);
    bool addColorScaleElement(ColorScaleElement element);

    /// An index out of range is ignored.
    void removeColorScaleElement(int index);
    void clear();

    int getColorScaleElementCount();
    std::vector<ColorScaleElement> getAllColorScaleElements();

    /// The element at `index`, or value 0 and opaque black for an index out of range.
    ColorScaleElement getColorScaleElements(int index);

    /// First and last value; false, and nothing is written, with fewer than two elements.
    bool getAbsoluteBoundaries(double& min, double& max) const;

    /// The interpolated colour with alpha 1, or `defaultColor` outside the scale, at the last element's value
    /// itself, and with fewer than two elements.
    osg::Vec4f getColor(double value, osg::Vec4f defaultColor);

private:
    std::vector<ColorScaleElement> _elements; ///< ascending by value
};

} // namespace VelOsgDBBrx
