#include <VelOsgDBBrx/OpenCloud.h>

#include "loading/OctreeCells.h"
#include "loading/OpenOctrees.h"
#include "lod/PointCloudLOD.h"
#include "registry/CloudFile.h"
#include "render/PointCloudImpl.h"

#include <VelBrx/Normals.h>
#include <osg/MatrixTransform>

#include <filesystem>

using VelBrx::Status;

namespace {

osg::Vec3d toVec(const double values[3])
{
    return osg::Vec3d(values[0], values[1], values[2]);
}

osg::ref_ptr<OctreeInfo> makeOctree(const VelBrx::BrxHeader& header)
{
    const osg::ref_ptr<OctreeInfo> octree = new OctreeInfo;
    octree->offset = toVec(header.offset);
    octree->min = toVec(header.min) - octree->offset;
    octree->max = toVec(header.max) - octree->offset;
    octree->scale = toVec(header.scale);
    octree->pointDataStart = header.pointDataStart;
    return octree;
}

/// `<store>.normals` where there is a file of that name, be it of use or not.
std::string ownNormals(const std::string& store)
{
    std::error_code error;
    const std::string path = VelBrx::normalsPath(store);
    return std::filesystem::exists(path, error) ? path : std::string();
}

} // namespace

Status fillCloud(PointCloudImpl& cloud, const std::string& path, const std::string& normalsPath,
                 VelOsgDBBrx::OpenedCloud& opened)
{
    VelBrx::StoreInfo info;
    std::unique_ptr<VelBrx::File> file;
    if (Status status = VelBrx::openStore(path, info, file); !status) return status;

    const osg::ref_ptr<OctreeInfo> octree = makeOctree(info.header);
    octree->pointPath = path;
    octree->pointFile = std::move(file);
    linkOctreeCells(info.cells, *octree);
    noteOpenOctree(*octree);
    opened.normals = normalsPath.empty() ? Status() : VelBrx::checkNormals(normalsPath, info.header);
    octree->normalsPath = normalsPath;
    octree->normalsFile = std::make_unique<VelBrx::File>(opened.normals ? normalsPath.c_str() : "");

    cloud.show(new PointCloudLOD(octree));
    cloud.setCullingActive(false);
    opened.cloud = &cloud;
    opened.node = &cloud;
    opened.header = std::move(info.header);
    opened.statistics = std::move(info.statistics);
    return {};
}

namespace VelOsgDBBrx {

Status openCloud(const std::string& path, const OpenOptions& options, OpenedCloud& opened)
{
    OpenedCloud read;
    const std::string normals = options.normals ? *options.normals : ownNormals(path);
    const osg::ref_ptr<PointCloudImpl> cloud = new PointCloudImpl;
    if (Status status = fillCloud(*cloud, path, normals, read); !status) return status;
    OctreeInfo& octree = *read.cloud->getOctree();
    if (!octree.pointFile->isValid())
        return Status::failure(path + ": cannot be mapped into memory; show fewer stores at once");
    if (options.frame == OpenOptions::Frame::FILE) {
        const osg::ref_ptr<osg::MatrixTransform> place =
            new osg::MatrixTransform(osg::Matrixd::translate(octree.offset));
        place->setDataVariance(osg::Object::DYNAMIC); // optimisers find no points to move in its place
        place->addChild(read.cloud);
        read.node = place;
    }
    opened = std::move(read);
    return {};
}

} // namespace VelOsgDBBrx
