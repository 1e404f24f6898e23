#pragma once

#include <osg/Image>
#include <osg/Vec2d>

#include <cstdint>
#include <vector>

namespace VelOsgDBBrx {
class PixelBufferTool;
}

/// The pixels of a window that lie inside a polygon: a byte a pixel, not zero inside, rows from the top. One
/// more byte, always zero, follows them; it stands for every place beyond the window.
class ScreenMask
{
public:
    /// Asks the tool for the mask of `polygon`. Invalid without a tool, for a size below 1, and when the tool
    /// gives no image of that size with bytes in it.
    ScreenMask(VelOsgDBBrx::PixelBufferTool* tool, const std::vector<osg::Vec2d>& polygon, int width,
               int height);

    /// Copies a mask: rows from the top, pixels inside with a first component that is not zero. Invalid
    /// without an image and when its size is not the given one or its data not bytes.
    ScreenMask(const osg::Image* image, int width, int height);

    bool isValid() const { return !_inside.empty(); }
    int width() const { return _width; }
    int height() const { return _height; }

    /// The place of column x of row y is y * width + x.
    const uint8_t* data() const { return _inside.data(); }

    /// The place of the byte for everything beyond the window.
    int32_t beyond() const { return _width * _height; }

private:
    int _width;
    int _height;
    std::vector<uint8_t> _inside; ///< empty when invalid
};
