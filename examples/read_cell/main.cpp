// Reads the points of a store's coarsest cell into memory, without a window.
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <osg/Geode>
#include <osg/Geometry>

#include <iostream>

using namespace VelOsgDBBrx;

namespace {

const osg::Vec3Array* positionsOf(osg::Node* leaf)
{
    const osg::Geode* const geode = leaf ? leaf->asGeode() : nullptr;
    const osg::Geometry* const geometry = geode ? geode->getDrawable(0)->asGeometry() : nullptr;
    return geometry ? dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray()) : nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: read_cell STORE.brx\n";
        return 1;
    }
    OpenedCloud opened;
    if (const VelBrx::Status status = openCloud(argv[1], OpenOptions(), opened); !status) {
        std::cerr << "read_cell: " << status.message() << "\n";
        return 1;
    }
    const OctreeInfo& octree = *opened.cloud->getOctree();
    const osg::ref_ptr<osg::Node> own = LasReaderWriter::read(octree.root);
    const osg::Vec3Array* const positions = positionsOf(own);
    if (!positions || positions->empty()) {
        std::cerr << "read_cell: " << argv[1] << ": its first cell cannot be read\n";
        return 1;
    }
    const osg::Vec3d first = osg::Vec3d(positions->front()) + octree.offset;
    std::cout << positions->size() << " of " << opened.header.pointCount << " points, the first at "
              << first.x() << " " << first.y() << " " << first.z() << "\n";

    // The same cell as viewers of this process share it.
    const osg::ref_ptr<osg::Node> shared = PCDataManager::getInstance()->acquireNodeOrCreate(octree.root);
    return positionsOf(shared) ? 0 : 1;
}
