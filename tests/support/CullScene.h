#pragma once

#include "tests/support/LasRecords.h"
#include "tests/support/TempFolder.h"

#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PixelBufferTool.h>

#include <OpenThreads/Mutex>
#include <osg/Matrixd>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <future>
#include <string>
#include <vector>

/// A mask source as a host might bring it: decides each pixel by its centre, exactly.
class ExactMaskTool : public VelOsgDBBrx::PixelBufferTool
{
public:
    bool acquire() override;
    void clear() override { _polygon.clear(); }
    void addPolygon(const Polygon& polygon) override { _polygon = polygon; }
    osg::ref_ptr<osg::Image> createMask(int width, int height) override;
    void release() override;

private:
    OpenThreads::Mutex _mutex;
    Polygon _polygon;
};

/// A seeded random cloud of `count` points in a cube of 100 units around the store's offset, in three levels
/// of cells; one point in eleven is hidden from the start. Coordinates have seven digits, and scales differ
/// by axis. The store has an id of its own. Returns the path.
std::string writeMarkedStore(const TempFolder& folder, int count = 20000, unsigned seed = 1,
                             const std::string& name = "cloud.brx");

/// A loaded store.
struct LoadedStore
{
    explicit LoadedStore(const std::string& storePath);

    OctreeInfo* octree() const { return cloud->getOctree(); }
    std::vector<osg::observer_ptr<OctreeInfo>> infos() const { return {octree()}; }

    std::string path;
    osg::ref_ptr<VelOsgDBBrx::IPointCloud> cloud;
};

/// Hidden bits of a leaf's points, written to their global indices in `bits`.
void addLeafBits(const osg::Node* leaf, std::vector<int>& bits);

/// Pushes a command made with a barrier count of 2, waits for it, and returns its result.
VelOsgDBBrx::CmdResult run(VelOsgDBBrx::BaseCmd* cmd);

/// Holds the worker of the command manager up until it is opened. Not kept for undo.
class Gate : public VelOsgDBBrx::BaseCmd
{
public:
    Gate() : BaseCmd(1) {}
    void open() { _open.set_value(); }
    void operator()(VelOsgDBBrx::CullCmdManager*) override { _open.get_future().wait(); }
    void reset(VelOsgDBBrx::CullCmdManager*) override {}

private:
    std::promise<void> _open;
};

/// A cull or un-cull command, ready to push, barrier count 2.
template <class Cmd>
osg::ref_ptr<Cmd> polygonCmd(OctreeInfo* octree, const Polygon& polygon, const Screen& screen,
                             VelOsgDBBrx::Type type = VelOsgDBBrx::Type::INSIDE, bool save = true)
{
    osg::ref_ptr<Cmd> cmd = new Cmd(2, save);
    Polygon vertices = polygon;
    osg::Matrixd vpw = screen.vpw();
    std::vector<osg::observer_ptr<OctreeInfo>> infos = {octree};
    cmd->setType(type);
    cmd->setPolygon(vertices);
    cmd->setVPW(vpw);
    cmd->setWidth(screen.width);
    cmd->setHeight(screen.height);
    cmd->setOctreeInfos(infos);
    cmd->setUid("no such viewer");
    return cmd;
}
