#pragma once

#include "tests/support/TempFolder.h"

#include <VelOsgDBBrx/CullCmd.h>
#include <VelOsgDBBrx/CullCmdManager.h>
#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PixelBufferTool.h>

#include <OpenThreads/Mutex>
#include <osg/Matrixd>
#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <cstdint>
#include <string>
#include <vector>

using Polygon = std::vector<osg::Vec2d>;
using Bytes = std::vector<uint8_t>;

/// The point records of a store, read from the bytes of its file as any LAS reader would.
class LasRecords
{
public:
    explicit LasRecords(const std::string& path);

    size_t size() const { return _count; }
    osg::Vec3d offset() const;

    /// File coordinates.
    osg::Vec3d position(size_t point) const;

    /// Bits 8 to 15 of the flag word.
    uint8_t& flags(size_t point) { return _bytes[record(point) + 15]; }
    uint8_t flags(size_t point) const { return _bytes[record(point) + 15]; }
    double gpsTime(size_t point) const;

    /// All bytes of the file.
    const Bytes& bytes() const { return _bytes; }

private:
    size_t record(size_t point) const { return _start + 36 * point; }

    Bytes _bytes;
    size_t _start = 0;
    size_t _count = 0;
};

Bytes readFile(const std::string& path);

/// A window and the camera that draws into it.
struct Screen
{
    int width = 200;
    int height = 150;
    osg::Matrixd view;
    osg::Matrixd projection;

    /// Looks at `center`, local coordinates, from `eye`, with a vertical field of view of 40 degrees.
    static Screen lookingAt(const osg::Vec3d& eye, const osg::Vec3d& center);

    osg::Matrixd vpw() const;
};

/// Which points an edit must act on: found point by point from the records, the camera and the polygon's
/// vertices, with nothing of the library. The polygon runs from the window's top; a pixel counts when its
/// centre lies in the polygon.
std::vector<bool> pointsUnder(const LasRecords& records, const Polygon& polygon, const Screen& screen,
                              const osg::Matrixd& localToWorld = osg::Matrixd());

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
/// of cells; one point in eleven is hidden from the start. Coordinates have seven digits. The store has an
/// identity of its own. Returns the path.
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

/// A cull or un-cull command, ready to push, barrier count 2.
template <class Cmd>
osg::ref_ptr<Cmd> polygonCmd(OctreeInfo* octree, const Polygon& polygon, const Screen& screen,
                             VelOsgDBBrx::Type type = VelOsgDBBrx::Type::INSIDE)
{
    osg::ref_ptr<Cmd> cmd = new Cmd(2);
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
