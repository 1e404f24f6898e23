#include "cull/ScreenMask.h"

#include <VelOsgDBBrx/PixelBufferTool.h>

#include <limits>

namespace {

bool isMaskSize(int width, int height)
{
    return width >= 1 && height >= 1 && width <= (std::numeric_limits<int32_t>::max() - 1) / height;
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

} // namespace

ScreenMask::ScreenMask(VelOsgDBBrx::PixelBufferTool* tool, const std::vector<osg::Vec2d>& polygon, int width,
                       int height)
    : ScreenMask(tool ? maskImage(*tool, polygon, width, height).get() : nullptr, width, height)
{
}

ScreenMask::ScreenMask(const osg::Image* image, int width, int height) : _width(width), _height(height)
{
    const bool usable = isMaskSize(width, height) && image && image->data() && image->s() == width &&
                        image->t() == height && image->getDataType() == GL_UNSIGNED_BYTE;
    if (!usable) return;

    _inside.resize(static_cast<size_t>(beyond()) + 1);
    const size_t pixelBytes = image->getPixelSizeInBits() / 8;
    uint8_t* inside = _inside.data();
    for (int row = 0; row < height; ++row) {
        const unsigned char* pixel = image->data(0, row);
        for (int column = 0; column < width; ++column, pixel += pixelBytes)
            *inside++ = *pixel;
    }
}
