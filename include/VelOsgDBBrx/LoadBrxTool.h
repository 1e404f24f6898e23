#pragma once

#include <VelBrx/BrxHeader.h>
#include <VelOsgDBBrx/Export.h>

#include <osg/Node>
#include <osg/Vec3d>

#include <string>

namespace VelOsgDBBrx {

/// Opens octree stores as scene-graph nodes. No point is read here; cells are read later, as the camera needs
/// them.
///
/// The node is an `IPointCloud` whose local frame is the store's file coordinates minus `offset`: a host that
/// wants file coordinates puts it under a translation by `offset`. It comes with no reference held, so that
/// the caller's `osg::ref_ptr` becomes its owner.
///
/// `normalsPath` names the normals companion file; empty or not of this store, the points have no normals.
///
/// Failure: null when the store is missing, unreadable or empty; nothing is written then. `openCloud` gives
/// the reason, and the statistics that colour ramps need. Threads: each call runs on its caller's thread, any
/// number at once.
class VEL_OSGDB_BRX_EXPORT LoadBrxTool
{
public:
    static osg::Node* loadBrxFile(const std::string& path, std::string normalsPath);

    /// Gives the store's offset, file units.
    static osg::Node* loadBrxFileOffset(const std::string& path, osg::Vec3d& offset, std::string normalsPath);

    /// Gives the offset, and the bounds relative to it.
    static osg::Node* loadBrxFile(const std::string& path, osg::Vec3d& offset, osg::Vec3d& min,
                                  osg::Vec3d& max, std::string normalsPath);

    /// Gives the store's header.
    static osg::Node* loadBrxFile(const std::string& path, VelBrx::BrxHeader& header,
                                  std::string normalsPath);

    static osg::Node* loadBrxFile(const std::string& path, osg::Vec3d& offset, osg::Vec3d& min,
                                  osg::Vec3d& max, VelBrx::BrxHeader& header, std::string normalsPath);
};

} // namespace VelOsgDBBrx
