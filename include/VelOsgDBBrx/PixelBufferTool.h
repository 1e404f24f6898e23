#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Image>
#include <osg/Referenced>
#include <osg/Vec2d>
#include <osg/ref_ptr>

#include <vector>

namespace VelOsgDBBrx {

/// Turns a polygon drawn on the screen into a mask of the window's pixels, for the commands that edit the
/// points under it. The library ships `PolygonMaskTool`; a host may bring its own, for instance one that
/// draws with the graphics card or masks a freehand brush.
///
/// Polygon and mask both run from the top left of the window: x to the right, y down, in pixels, as mouse
/// events of most window systems come. A polygon in OpenGL's window coordinates, whose y runs up, is turned
/// by y = height - y first.
///
/// Threads: the workers that edit points call the operations in this order, each from its own thread:
/// `acquire`, `clear`, `addPolygon` once or several times, `createMask`, `release`. `acquire` lets one caller
/// in at a time; the others need no lock of their own.
class VEL_OSGDB_BRX_EXPORT PixelBufferTool : public osg::Referenced
{
public:
    PixelBufferTool() = default;
    PixelBufferTool(const PixelBufferTool&) = default;
    PixelBufferTool(PixelBufferTool&&) = default;
    PixelBufferTool& operator=(const PixelBufferTool&) = default;
    PixelBufferTool& operator=(PixelBufferTool&&) = default;

    /// Waits until no other caller uses the tool, and makes it ready, for instance its graphics context
    /// current. False when it cannot give masks now; `release` is not called then.
    virtual bool acquire() = 0;

    /// Forgets all polygons.
    virtual void clear() = 0;

    /// Adds a polygon, closed implicitly. Areas covered an even number of times are outside. The polygon may
    /// reach far beyond the window; one of fewer than three vertices covers nothing.
    virtual void addPolygon(const std::vector<osg::Vec2d>& polygon) = 0;

    /// The mask of the polygons added: an image of `width` x `height` pixels of data type GL_UNSIGNED_BYTE in
    /// which the first component of a pixel inside is not zero. The first row of its data is the top row of
    /// the window, whatever the image's origin says. Null when there can be none, a size below 1 among them.
    /// The caller owns the image.
    virtual osg::ref_ptr<osg::Image> createMask(int width, int height) = 0;

    /// Lets the next caller in.
    virtual void release() = 0;

protected:
    ~PixelBufferTool() override = default;
};

} // namespace VelOsgDBBrx
