#pragma once

#include <osg/Image>
#include <osg/Vec2d>
#include <osg/ref_ptr>

#include <cstdint>
#include <vector>

namespace VelOsgDBBrx {
class PixelBufferTool;
}

/// The pixels of a window that lie inside a polygon: a byte a pixel, not zero inside, rows from the top.
class ScreenMask
{
public:
    /// Asks the tool for the mask of `polygon`. Invalid without a tool, for a size below 1, and when the tool
    /// gives no image of that size with bytes in it.
    ScreenMask(VelOsgDBBrx::PixelBufferTool* tool, const std::vector<osg::Vec2d>& polygon, int width,
               int height);

    /// Holds a mask: rows from the top, pixels inside with a first component that is not zero. Invalid
    /// without an image and when its size is not the given one or its data not bytes.
    ScreenMask(osg::ref_ptr<const osg::Image> image, int width, int height);

    bool isValid() const { return _image.valid(); }
    int width() const { return _image->s(); }
    int height() const { return _image->t(); }

    /// The place of column x of row y is y * pitch + x.
    const uint8_t* data() const { return _image->data(); }
    int pitch() const { return static_cast<int>(_image->getRowStepInBytes()); }

private:
    osg::ref_ptr<const osg::Image> _image; ///< null when invalid
};
