#include "tests/support/CullScene.h"

#include "loading/CellGeometry.h"
#include "tests/support/TestStore.h"

#include <VelOsgDBBrx/LoadBrxTool.h>

#include <osg/Geode>

#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <stdexcept>

using namespace VelOsgDBBrx;

namespace {

constexpr double kScale[3] = {0.001, 0.002, 0.0005};
constexpr double kCubeSize = 100.004;

/// Places each point in the cell of its level; the level is drawn by lot.
class CloudBuilder
{
public:
    void add(const TestPoint& point, int level)
    {
        const int cellsPerAxis = 1 << level;
        uint64_t code = 0;
        const int32_t steps[3] = {point.x, point.y, point.z};
        for (int bit = level - 1; bit >= 0; --bit)
            for (int axis = 2; axis >= 0; --axis) {
                const int cell =
                    static_cast<int>((steps[axis] * kScale[axis] + 50) * cellsPerAxis / kCubeSize);
                code = code << 1 | (cell >> bit & 1);
            }
        _cells[{level, code}].push_back(point);
    }

    TestStore store(uint64_t identity)
    {
        TestStore store;
        std::copy(kScale, kScale + 3, store.scale);
        const double offset[3] = {1234567.0, 7654321.0, 250.0};
        std::copy(offset, offset + 3, store.offset);
        store.coordinateSystem = "LOCAL_CS[\"odd\"]";
        store.index.storeId = identity;
        for (int axis = 0; axis < 3; ++axis)
            store.index.cubeMin[axis] = offset[axis] - 50;
        store.index.cubeSize = kCubeSize;
        for (const auto& [key, points] : _cells)
            store.addCell(key.first, key.second, points);
        store.updateStatistics();
        return store;
    }

private:
    std::map<std::pair<int, uint64_t>, std::vector<TestPoint>> _cells;
};

} // namespace

bool ExactMaskTool::acquire()
{
    return _mutex.lock() == 0;
}

void ExactMaskTool::release()
{
    _mutex.unlock();
}

osg::ref_ptr<osg::Image> ExactMaskTool::createMask(int width, int height)
{
    if (width < 1 || height < 1) return nullptr;
    osg::ref_ptr<osg::Image> mask = new osg::Image;
    mask->allocateImage(width, height, 1, GL_RGB, GL_UNSIGNED_BYTE);
    std::memset(mask->data(), 0, mask->getTotalSizeInBytes());
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column)
            *mask->data(column, row) = contains(_polygon, column + 0.5, row + 0.5);
    return mask;
}

std::string writeMarkedStore(const TempFolder& folder, int count, unsigned seed, const std::string& name)
{
    static std::atomic<uint64_t> storeCounter{0xC011};
    std::mt19937 random(seed);
    std::uniform_int_distribution<int32_t> place(-50000, 50000); // thousandths of a unit
    CloudBuilder builder;
    for (int i = 0; i < count; ++i) {
        TestPoint point;
        point.x = static_cast<int32_t>(place(random) * 0.001 / kScale[0]);
        point.y = static_cast<int32_t>(place(random) * 0.001 / kScale[1]);
        point.z = static_cast<int32_t>(place(random) * 0.001 / kScale[2]);
        point.gpsTime = 1e5 + i;
        point.sourceId = static_cast<uint16_t>(i);
        point.red = point.green = point.blue = 65535;
        point.flags = static_cast<uint8_t>(i % 11 == 0 ? 0xA1 : 0x50);
        builder.add(point, i % 3);
    }
    return folder.write(name, builder.store(storeCounter++).bytes());
}

LoadedStore::LoadedStore(const std::string& storePath)
    : path(storePath), cloud(dynamic_cast<IPointCloud*>(LoadBrxTool::loadBrxFile(storePath, std::string())))
{
    if (!cloud) throw std::runtime_error("cannot load " + storePath);
}

void addLeafBits(const osg::Node* leaf, std::vector<int>& bits)
{
    const auto* geometry = dynamic_cast<const CellGeometry*>(leaf->asGeode()->getDrawable(0));
    const auto& attribute = dynamic_cast<const osg::IntArray&>(*geometry->getVertexAttribArray(12));
    const auto& indices = dynamic_cast<const osg::Vec2iArray&>(*geometry->getUserData());
    for (size_t i = 0; i < indices.size(); ++i)
        bits.at(indices[i].x()) = attribute[i] >> 16 & 0x0F;
}

CmdResult run(BaseCmd* cmd)
{
    const osg::ref_ptr<BaseCmd> held = cmd;
    CullCmdManager::getInstance()->push(held);
    held->block();
    return held->getResult();
}
