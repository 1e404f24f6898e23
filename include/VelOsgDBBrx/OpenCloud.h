#pragma once

#include <VelBrx/Status.h>
#include <VelBrx/StoreInfo.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/Node>
#include <osg/ref_ptr>

#include <optional>
#include <string>

namespace VelOsgDBBrx {

/// How `openCloud` opens a store.
struct OpenOptions
{
    enum class Frame
    {
        LOCAL, ///< the store's file coordinates minus its offset
        FILE   ///< file coordinates: the node is a translation by the offset, in double precision
    };

    /// The normals companion file; empty: none. Not set: `<store>.normals` where there is one.
    std::optional<std::string> normals;

    Frame frame = Frame::FILE;
};

/// A store that is open for the scene.
struct OpenedCloud
{
    osg::ref_ptr<IPointCloud> cloud;
    osg::ref_ptr<osg::Node> node; ///< for the scene: `cloud`, or the translation above it
    VelBrx::BrxHeader header;
    VelBrx::StoreStatistics statistics; ///< as built

    /// Fails, with a line that names the file, where a normals file was named or found and does not belong to
    /// the store. The cloud has no normals then.
    VelBrx::Status normals;
};

/// Opens the store at `path` as a point cloud for the scene. The store is opened once and its index read
/// once; points are read later, as the camera needs them.
///
/// A failure names the file, what is wrong and what to do, and leaves `opened` unchanged. Any thread may call
/// it; add the node to the scene between frames or in the update traversal.
VEL_OSGDB_BRX_EXPORT VelBrx::Status openCloud(const std::string& path, const OpenOptions& options,
                                              OpenedCloud& opened);

} // namespace VelOsgDBBrx
