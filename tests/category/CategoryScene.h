#pragma once

#include "tests/support/CullScene.h"

#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/CategoryCalcTool.h>

#include <gtest/gtest.h>
#include <osg/ref_ptr>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Polygons of a window of 200 x 150 pixels: one that is not convex, off the pixel grid, and one around all.
inline const Polygon kArrow = {{20.3, 30.2},   {170.7, 20.9}, {120.1, 75.4},
                               {180.6, 140.2}, {30.8, 110.7}, {75.2, 70.3}};
inline const Polygon kEverything = {{-5, -5}, {205, -5}, {205, 155}, {-5, 155}};

using Classes = std::vector<uint8_t>; ///< one a point, in the order of the point file

/// The classes in the records of a store, by its bytes.
Classes storedClasses(const std::string& path);

/// The bytes of a store with other classes in its records.
Bytes withClasses(Bytes store, const Classes& classes);

/// As `writeMarkedStore`, its points of random classes 1 to 6 and, some, of 255.
std::string writeClassifiedStore(const TempFolder& folder, const std::string& name = "cloud.brx",
                                 unsigned seed = 1, int count = 20000);

/// A polygon edit with the screen's camera.
osg::ref_ptr<VelOsgDBBrx::PolygonCmd> polygonEdit(const Polygon& polygon, const Screen& screen, int toClass);

/// Pushes an edit, waits for it, and returns its report.
osg::ref_ptr<VelOsgDBBrx::CategoryReport> pushAndWait(const std::string& uid, osg::Referenced* record,
                                                      bool dryRun = false);

/// Pushes a request of a kind without payload and waits for it.
osg::ref_ptr<VelOsgDBBrx::CategoryReport> pushAndWait(int kind);

/// What `classes` become when the points under the polygon get `toClass` where `mayChange` allows it.
Classes edited(
    Classes classes, const std::vector<bool>& under, int toClass,
    const std::function<bool(size_t point)>& mayChange = [](size_t) { return true; });

/// The report of `getAllModify64` that takes `before` to `after`.
std::vector<std::pair<int64_t, uint8_t>> difference(const Classes& before, const Classes& after);

/// The classes that the leaf of a cell shows, and those of the points of other cells as in `classes`.
void readLeaf(osg::Node* leaf, Classes& classes);

/// Reads every cell of an octree through the cache, and returns the classes that the leaves show.
Classes shownClasses(const OctreeInfo& octree);

/// A loaded store of points with classes, and a camera that sees all of it.
class ClassifiedScene : public testing::Test
{
protected:
    /// The points that an edit with this polygon may reach when nothing is waived.
    std::vector<bool> visibleUnder(const Polygon& polygon) const;

    TempFolder folder;
    const std::string path = writeClassifiedStore(folder);
    LoadedStore store{path};
    Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
    const LasRecords records{path};
    const Classes before = storedClasses(path);
};
