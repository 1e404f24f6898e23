#pragma once

#include "lod/PointCloudLOD.h"
#include "tests/support/HeadlessViewer.h"
#include "tests/support/Settle.h"
#include "tests/support/TempFolder.h"

#include <osg/MatrixTransform>
#include <osg/ref_ptr>

#include <set>
#include <string>

/// Writes a store of random points (seeded) into `folder` and gives its path: a cube of 100 m around the
/// offset (500000, 4500000, 100), `levels` levels, `pointsPerCell` points in each of their cells.
std::string writeRandomStore(const TempFolder& folder, unsigned levels, unsigned pointsPerCell,
                             unsigned seed = 1);

/// A store in a scene of its own, where its file coordinates put it.
struct PlacedCloud
{
    explicit PlacedCloud(const std::string& path);

    OctreeInfo& octree() const { return *lod->getOctree(); }

    /// The cells that hold a node, and the nodes under the cloud, as a settled scene has them.
    std::multiset<const osg::Node*> loaded() const;
    std::multiset<const osg::Node*> drawn() const;

    osg::Vec3d offset;
    osg::ref_ptr<osg::MatrixTransform> root = new osg::MatrixTransform; ///< local to world
    osg::ref_ptr<osg::Node> node;
    osg::ref_ptr<PointCloudLOD> lod;
};

/// A store on the screen of a headless viewer whose context is registered.
class PagingScene
{
public:
    explicit PagingScene(
        osgViewer::ViewerBase::ThreadingModel threading = osgViewer::ViewerBase::SingleThreaded,
        unsigned levels = 4, unsigned pointsPerCell = 20);
    ~PagingScene();

    VelOsgDBBrx::IPointLoadManager& manager();

    /// Looks from `eye` at `center`, both relative to the middle of the cube.
    void look(const osg::Vec3d& eye, const osg::Vec3d& center = osg::Vec3d());

    /// Draws frames until paging is at rest. False after 20 seconds.
    bool settle() { return ::settle(view); }

    std::multiset<const osg::Node*> loadedNodes() const { return placed.loaded(); }
    std::multiset<const osg::Node*> drawnNodes() const { return placed.drawn(); }
    size_t cellCount() const;

    TempFolder folder;
    PlacedCloud placed;
    HeadlessViewer view;
    const osg::ref_ptr<osg::MatrixTransform> placement = placed.root;
    const osg::ref_ptr<osg::Node> cloud = placed.node;
    const osg::ref_ptr<PointCloudLOD> lod = placed.lod;
};
