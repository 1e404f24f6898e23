#include "edit/ScreenMask.h"

#include <VelOsgDBBrx/PixelBufferTool.h>

#include <cstdint>
#include <limits>

namespace {

bool isMaskSize(int width, int height)
{
    constexpr int64_t kRowPadding = 8; // at most, after each row
    return width >= 1 && height >= 1 && (width + kRowPadding) * height <= std::numeric_limits<int32_t>::max();
}

osg::ref_ptr<osg::Image> maskImage(VelOsgDBBrx::PixelBufferTool& tool, const std::vector<osg::Vec2d>& polygon,
                                   int width, int height)
{
    if (!isMaskSize(width, height) || !tool.acquire()) return nullptr;
    tool.clear();
    tool.addPolygon(polygon);
    osg::ref_ptr<osg::Image> image = tool.createMask(width, height);
    tool.release();
    return image;
}

/// The first components alone, a byte a pixel.
osg::ref_ptr<const osg::Image> firstComponents(const osg::Image& image)
{
    const osg::ref_ptr<osg::Image> components = new osg::Image;
    components->allocateImage(image.s(), image.t(), 1, GL_LUMINANCE, GL_UNSIGNED_BYTE);
    const size_t pixelBytes = image.getPixelSizeInBits() / 8;
    for (int row = 0; row < image.t(); ++row) {
        const unsigned char* pixel = image.data(0, row);
        for (int column = 0; column < image.s(); ++column, pixel += pixelBytes)
            *components->data(column, row) = *pixel;
    }
    return components;
}

} // namespace

ScreenMask::ScreenMask(VelOsgDBBrx::PixelBufferTool* tool, const std::vector<osg::Vec2d>& polygon, int width,
                       int height)
    : ScreenMask(tool ? maskImage(*tool, polygon, width, height) : nullptr, width, height)
{
}

ScreenMask::ScreenMask(osg::ref_ptr<const osg::Image> image, int width, int height)
{
    const bool usable = isMaskSize(width, height) && image && image->data() && image->s() == width &&
                        image->t() == height && image->getDataType() == GL_UNSIGNED_BYTE;
    if (usable) _image = image->getPixelSizeInBits() == 8 ? image : firstComponents(*image);
}
