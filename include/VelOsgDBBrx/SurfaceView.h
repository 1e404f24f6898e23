#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/ShaderHelper.h>

#include <osg/Camera>
#include <osg/CopyOp>
#include <osg/Group>

#include <bitset>
#include <memory>
#include <optional>

namespace VelOsgDBBrx {

/// How a `SurfaceView` draws the surface.
struct SurfaceSettings
{
    std::bitset<256> classes = std::bitset<256>().set(2); ///< whose points make the surface; ground at first
    double contourInterval = 1;                           ///< world units; 0: no contour lines
    double sunAzimuth = 315;                              ///< degrees clockwise from the world's y axis
    double sunHeight = 45;                                ///< degrees above the horizon
    double closing = 100;                      ///< width of the largest hole that is closed, world units
    bool otherPoints = true;                   ///< draw the points of the other classes too
    std::optional<ColorWithRangeInfo> heights; ///< colours by height; else the surface is of one colour
};

/// Draws the point clouds below it as a closed, hill-shaded surface with contour lines: of the points of some
/// classes that are loaded, neither hidden nor clipped, and of a class that is shown. Nothing is built
/// beforehand: each frame takes the points as they are, so that every edit shows in the next one.
///
/// The surface is made anew for each camera, on the graphics card: the nearest point of each pixel at half
/// the viewport's resolution, holes closed from coarser and coarser pictures of it. It has depth, like any
/// other thing in the scene. Where points are picked there is no surface, but every point.
///
/// Steep slopes are tinted. Points stand out by their slopes, so single points that are wrongly on the
/// surface, or steps along an edge of what was left out, are seen at once.
///
/// Change the settings where the scene may be changed: between frames or in the update traversal. Scene files
/// do not keep them.
class VEL_OSGDB_BRX_EXPORT SurfaceView : public osg::Group
{
public:
    SurfaceView();
    SurfaceView(const SurfaceView& other, const osg::CopyOp& copyOp); ///< with the same settings

    osg::Object* cloneType() const override { return new SurfaceView; }
    osg::Object* clone(const osg::CopyOp& copyOp) const override { return new SurfaceView(*this, copyOp); }
    bool isSameKindAs(const osg::Object* other) const override
    {
        return dynamic_cast<const SurfaceView*>(other) != nullptr;
    }
    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "SurfaceView"; }

    /// Off at first: then it is a plain group.
    void setActive(bool active);
    bool isActive() const;

    void setSettings(const SurfaceSettings& settings);
    const SurfaceSettings& settings() const;

    /// Whether the pictures of a camera have surfaces: those of every camera at first. Without them it draws
    /// all points as points, as one wants them that looks along the surface. Copies of the camera are alike.
    static void setShownTo(osg::Camera& camera, bool shown);
    static bool isShownTo(const osg::Camera& camera);

    void traverse(osg::NodeVisitor& visitor) override;
    void resizeGLObjectBuffers(unsigned maxSize) override;
    void releaseGLObjects(osg::State* state = nullptr) const override;

protected:
    ~SurfaceView() override;

private:
    class Impl;
    const std::unique_ptr<Impl> _impl;
};

} // namespace VelOsgDBBrx
