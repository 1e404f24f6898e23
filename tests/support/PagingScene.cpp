#include "tests/support/PagingScene.h"

#include "lod/PointCloudLODVisitor.h"
#include "tests/support/HandOctree.h"
#include "tests/support/TestStore.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/GlobalObject.h>
#include <VelOsgDBBrx/LoadBrxTool.h>

#include <random>
#include <stdexcept>

using VelOsgDBBrx::GlobalObject;

namespace {

constexpr double kScale = 0.001;
constexpr double kCubeSize = 100;
const osg::Vec3d kOffset(500000, 4500000, 100);

} // namespace

std::string writeRandomStore(const TempFolder& folder, unsigned levels, unsigned pointsPerCell, unsigned seed)
{
    std::mt19937 random(seed);
    TestStore store;
    store.index.storeId = 0x9900 + seed;
    store.index.cubeSize = kCubeSize;
    store.index.gridSize = 2; // coarse enough for windows of a few pixels to want every level
    for (size_t axis = 0; axis < 3; ++axis) {
        store.scale[axis] = kScale;
        store.offset[axis] = kOffset[static_cast<int>(axis)];
        store.index.cubeMin[axis] = store.offset[axis] - kCubeSize / 2;
    }
    for (unsigned level = 0; level < levels; ++level) {
        const double edge = kCubeSize / (1u << level);
        for (uint64_t code = 0; code < (uint64_t{1} << (3 * level)); ++code) {
            uint32_t cellIndex[3] = {0, 0, 0}; // along x, y, z: every third bit of the code
            for (unsigned bit = 0; bit < 3 * level; ++bit)
                cellIndex[bit % 3] |= static_cast<uint32_t>((code >> bit) & 1) << (bit / 3);
            std::vector<TestPoint> points(pointsPerCell);
            for (TestPoint& point : points) {
                int32_t* const steps[3] = {&point.x, &point.y, &point.z};
                for (size_t axis = 0; axis < 3; ++axis) {
                    std::uniform_real_distribution<double> inside(0.01 * edge, 0.99 * edge);
                    const double local = cellIndex[axis] * edge - kCubeSize / 2 + inside(random);
                    *steps[axis] = static_cast<int32_t>(local / kScale);
                }
                point.red = point.green = point.blue = 65535;
            }
            store.addCell(static_cast<uint8_t>(level), code, points);
        }
    }
    store.updateStatistics();
    return folder.write("random" + std::to_string(seed) + ".brx", store.bytes());
}

PlacedCloud::PlacedCloud(const std::string& path)
    : node(VelOsgDBBrx::LoadBrxTool::loadBrxFileOffset(path, offset, ""))
{
    if (!node) throw std::runtime_error("the store does not load");
    PointCloudLODVisitor finder;
    node->accept(finder);
    lod = finder.nodes.at(0);
    root->setMatrix(osg::Matrixd::translate(offset));
    root->addChild(node);
}

std::multiset<const osg::Node*> PlacedCloud::loaded() const
{
    std::multiset<const osg::Node*> nodes;
    visitCells(*octree().root, [&](CellData& cell) {
        if (cell.node) nodes.insert(cell.node);
    });
    return nodes;
}

std::multiset<const osg::Node*> PlacedCloud::drawn() const
{
    std::multiset<const osg::Node*> nodes;
    for (unsigned i = 0; i < lod->getNumChildren(); ++i)
        nodes.insert(lod->getChild(i));
    return nodes;
}

PagingScene::PagingScene(osgViewer::ViewerBase::ThreadingModel threading, unsigned levels,
                         unsigned pointsPerCell)
    : placed(writeRandomStore(folder, levels, pointsPerCell)), view(64, 64, threading)
{
    GlobalObject::registerGraphicsContext(view.window);
    look(osg::Vec3d(0, -300, 0));
    view.show(placement);
}

PagingScene::~PagingScene()
{
    view.viewer->stopThreading();
    GlobalObject::unRegisterGraphicsContext(view.window);
}

VelOsgDBBrx::IPointLoadManager& PagingScene::manager()
{
    return *GlobalObject::getPLM(view.window);
}

void PagingScene::look(const osg::Vec3d& eye, const osg::Vec3d& center)
{
    const osg::Vec3d middle = placement->getMatrix().getTrans();
    view.camera().setViewMatrixAsLookAt(middle + eye, middle + center, osg::Vec3d(0, 0, 1));
}

size_t PagingScene::cellCount() const
{
    size_t count = 0;
    visitCells(*lod->getOctree()->root, [&](CellData&) { ++count; });
    return count;
}
