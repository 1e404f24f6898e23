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

    /// The cells that hold a node, and the nodes under the cloud, as a settled scene has them.
    std::multiset<const osg::Node*> loadedNodes() const;
    std::multiset<const osg::Node*> drawnNodes() const;

    size_t cellCount() const;

    TempFolder folder;
    HeadlessViewer view;
    osg::ref_ptr<osg::MatrixTransform> placement; ///< local to world
    osg::ref_ptr<osg::Node> cloud;
    osg::ref_ptr<PointCloudLOD> lod;
};
