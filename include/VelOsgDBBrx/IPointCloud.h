#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Group>
#include <osg/Vec4d>

#include <vector>

class OctreeInfo;

namespace VelOsgDBBrx {

/// A loaded point cloud in the scene. Made by `openCloud` and `LoadBrxTool`; the host holds it and adds it to
/// its scene. Call its operations where the scene may be changed: between frames or in the update traversal.
///
/// Scene files (.osgt, .osgb, .osgx) keep a reference to the store and the cloud's display. A clone is a
/// cloud that shows the same octree, whatever the copy operation says of nodes; of state and callbacks that
/// decides.
///
/// A cloud may stand in the scene more than once, below several parents or as clones: it is drawn at every
/// place, and paged for all of them. Edits, filter planes of a pass without a camera, and picks know one
/// place alone. Edits take the first path to it from a root of the scene, in the order of the parents, on
/// which nothing is switched off; the others take the place that was drawn last.
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
    IPointCloud() = default;
    IPointCloud(const IPointCloud& other, const osg::CopyOp& copyOp) : osg::Group(other, copyOp) {}
    ~IPointCloud() override = default;
};

} // namespace VelOsgDBBrx
