#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgUtils/CameraState.h>

#include <osg/Matrixd>
#include <osg/Object>
#include <osg/Vec3d>
#include <osg/Vec4d>
#include <osg/ref_ptr>

#include <cstdint>
#include <vector>

namespace VelOsgDBBrx {

/// What one level-of-detail pass works on: a snapshot of the cameras, the requests and the octrees of a
/// context. Only the load manager's thread touches it, and the pass that it hands it to.
class VEL_OSGDB_BRX_EXPORT FrameStamp : public osg::Object
{
public:
    FrameStamp();
    FrameStamp(const FrameStamp& other); ///< shares the octrees

    osg::Object* cloneType() const override { return new FrameStamp; }
    osg::Object* clone(const osg::CopyOp&) const override { return new FrameStamp(*this); }
    bool isSameKindAs(const osg::Object* object) const override;
    const char* libraryName() const override { return "VelOsgDBBrx"; }
    const char* className() const override { return "FrameStampInner"; }

    /// A camera that draws octrees of the pass, each at one place in the world.
    struct View
    {
        VelOsgUtils::CameraState camera;
        std::vector<size_t> octrees;        ///< by their numbers in `FrameStamp::octrees`
        std::vector<osg::Matrixd> models{}; ///< of each, local to world; empty: `OctreeInfo::transform`
    };

    /// The context's main camera.
    VelOsgUtils::CameraState mainCamera() const { return {projection, view, width, height}; }

    /// \name Set by the load manager; the cameras and viewports stay as in the last pass
    /// @{
    osg::Matrixd projection;
    osg::Matrixd view;
    int width = 0; ///< of the viewport, pixels
    int height = 0;
    std::vector<osg::ref_ptr<OctreeInfo>> octrees; ///< empty between passes
    /// Every camera that draws octrees of the pass, whatever its context; an octree in none of them is seen
    /// by nobody. A camera that draws an octree at several places has a view for each. Empty: the main camera
    /// draws all of them.
    std::vector<View> views;
    uint64_t maxNumOfPointCloud = 0;
    uint64_t mouseDiluteNum = 0;
    std::vector<osg::Vec4d> planes; ///< filter planes, see `IPointLoadManager::setFilterPlanes`
    int planesPerGroup = 0;
    /// @}

    /// \name Set by the camera-driven pass, of the main camera
    /// @{
    bool perspective = false;
    double fieldOfViewY = 0; ///< degrees; perspective only
    double orthoWidth = 0;   ///< world units; orthographic only
    double orthoHeight = 0;
    osg::Vec3d eye; ///< world coordinates
    osg::Vec3d center;
    osg::Vec3d up;
    /// @}

    /// Set by a pass that left work behind: an octree was busy, or the abort flag cut its loading short. The
    /// load manager then runs another pass soon even if nothing else changes.
    bool incomplete = false;

protected:
    ~FrameStamp() override;
};

} // namespace VelOsgDBBrx
