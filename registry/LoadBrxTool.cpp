#include <VelOsgDBBrx/LoadBrxTool.h>

#include "registry/CloudFile.h"
#include "render/PointCloudImpl.h"

#include <VelOsgDBBrx/OctreeInfo.h>

namespace VelOsgDBBrx {

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, std::string normalsPath)
{
    osg::Vec3d offset;
    return loadBrxFileOffset(path, offset, std::move(normalsPath));
}

osg::Node* LoadBrxTool::loadBrxFileOffset(const std::string& path, osg::Vec3d& offset,
                                          std::string normalsPath)
{
    osg::Vec3d min;
    osg::Vec3d max;
    return loadBrxFile(path, offset, min, max, std::move(normalsPath));
}

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, osg::Vec3d& offset, osg::Vec3d& min,
                                    osg::Vec3d& max, std::string normalsPath)
{
    VelBrx::BrxHeader header;
    return loadBrxFile(path, offset, min, max, header, std::move(normalsPath));
}

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, VelBrx::BrxHeader& header,
                                    std::string normalsPath)
{
    osg::Vec3d offset;
    osg::Vec3d min;
    osg::Vec3d max;
    return loadBrxFile(path, offset, min, max, header, std::move(normalsPath));
}

osg::Node* LoadBrxTool::loadBrxFile(const std::string& path, osg::Vec3d& offset, osg::Vec3d& min,
                                    osg::Vec3d& max, VelBrx::BrxHeader& header, std::string normalsPath)
{
    OpenedCloud opened;
    osg::ref_ptr<PointCloudImpl> cloud = new PointCloudImpl;
    if (!fillCloud(*cloud, path, normalsPath, opened)) return nullptr;
    const OctreeInfo& octree = *opened.cloud->getOctree();
    offset = octree.offset;
    min = octree.min;
    max = octree.max;
    header = std::move(opened.header);
    opened = {};
    return cloud.release();
}

} // namespace VelOsgDBBrx
