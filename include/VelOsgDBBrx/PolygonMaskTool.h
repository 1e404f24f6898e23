#pragma once

#include <VelOsgDBBrx/PixelBufferTool.h>
#include <VelThreads/Mutex.h>

namespace VelOsgDBBrx {

/// The ready mask source: fills polygons on the processor, with cairo. A pixel is inside when its centre is,
/// by the even-odd rule and to a hundredth of a pixel; there is no antialiasing, so that a mask never covers
/// a pixel that the polygon only grazes. Vertices need not lie in the window; a polygon with a vertex that is
/// not finite, or further than 1e12 pixels away, covers nothing.
///
///     CullCmdManager::getInstance()->setPixelBufferTool(new PolygonMaskTool);
class VEL_OSGDB_BRX_EXPORT PolygonMaskTool : public PixelBufferTool
{
public:
    PolygonMaskTool() = default;
    PolygonMaskTool(const PolygonMaskTool& other);
    PolygonMaskTool& operator=(const PolygonMaskTool& other);

    bool acquire() override VEL_ACQUIRE(_mutex);
    void clear() override VEL_REQUIRES(_mutex);
    void addPolygon(const std::vector<osg::Vec2d>& polygon) override VEL_REQUIRES(_mutex);
    osg::ref_ptr<osg::Image> createMask(int width, int height) override VEL_REQUIRES(_mutex);
    void release() override VEL_RELEASE(_mutex);

protected:
    ~PolygonMaskTool() override = default;

private:
    std::vector<std::vector<osg::Vec2d>> copyPolygons() const;

    mutable VelThreads::Mutex _mutex; ///< held from `acquire` to `release`
    std::vector<std::vector<osg::Vec2d>> _polygons VEL_GUARDED_BY(_mutex);
};

} // namespace VelOsgDBBrx
