#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Group>
#include <osg/Vec4d>

#include <vector>

class OctreeInfo;

namespace VelOsgDBBrx {

/// A loaded point cloud in the scene. Made by `openCloud` and `LoadBrxTool`; the host holds it and adds it to its scene.
/// Call its operations where the scene may be changed: between frames or in the update traversal.
class VEL_OSGDB_BRX_EXPORT IPointCloud : public osg::Group
{
public:
    /// Switches eye-dome lighting on; nothing happens when it is on.
    virtual void enableEyeDomeLighting() = 0;

    /// Switches eye-dome lighting off; nothing happens unless it is on.
    virtual void disableEyeDomeLighting() = 0;

    /// Replaces the cloud's plane list: (a, b, c, d) in world coordinates, a point is inside when
    /// a x + b y + c z + d >= 0.
    virtual void setPlanes(std::vector<osg::Vec4d> planes) = 0;

    /// The octree that the cloud shows. It lives as long as the cloud.
    virtual OctreeInfo* getOctree() = 0;

protected:
    ~IPointCloud() override = default;
};

} // namespace VelOsgDBBrx
