#include "category/CpuCategoryOp.h"
#include "category/PointCategoryManager.h"
#include "loading/CellLeaf.h"
#include "tests/category/CategoryScene.h"
#include "tests/support/Eventually.h"

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <gtest/gtest.h>
#include <osg/MatrixTransform>

using namespace VelOsgDBBrx;

namespace {

/// Edges run along pixels: no pixel's centre is near one.
const Polygon kCorner = {{20.3, 30.2}, {150.3, 30.2}, {150.3, 90.4},
                         {90.8, 90.4}, {90.8, 140.1}, {20.3, 140.1}};
const Polygon kLeft = {{-5, -5}, {100.2, -5}, {100.2, 155}, {-5, 155}};

class CpuCategoryOpTest : public ClassifiedScene
{
protected:
    void SetUp() override
    {
        manager->setOperation(new CpuCategoryOp(nullptr));
        manager->addMember(store.octree());
        manager->addMember(new osg::Node); // nothing that has classes
        manager->start();
    }

    void TearDown() override
    {
        manager->pushKind3();
        EXPECT_TRUE(shows(before));
        manager->stop();
        EXPECT_TRUE(CategoryCalcTool::getInstance()->writeToStores().ok());
    }

    osg::ref_ptr<CategoryCmdInner> command(const Polygon& polygon, int toClass) const
    {
        osg::ref_ptr<CategoryCmdInner> cmd = new CategoryCmdInner;
        cmd->polygon = polygon;
        cmd->vpw = screen.vpw();
        cmd->width = screen.width;
        cmd->height = screen.height;
        cmd->toClass = toClass;
        return cmd;
    }

    /// The points are drawn with these classes, at the latest after a while.
    bool shows(const Classes& classes) const
    {
        return eventually([&] { return shownClasses(*store.octree()) == classes; });
    }

    osg::ref_ptr<PointCategoryManager> manager = new PointCategoryManager;
};

} // namespace

TEST_F(CpuCategoryOpTest, EditsUndoesRedoesAndResetsTheRegisteredClouds)
{
    std::vector<osg::Vec4d> planes = {{0, 0, 1, 10}};
    manager->setClipPlanes(planes);
    const auto aboveTheClipPlane = [&](size_t i) {
        return (records.position(i) - records.offset()).z() + 10 >= 0;
    };
    const Classes first = edited(before, visibleUnder(kCorner), 9, [&](size_t i) {
        return aboveTheClipPlane(i) && (before[i] == 2 || before[i] == 5);
    });
    const Classes second = edited(first, visibleUnder(kLeft), 8, aboveTheClipPlane);

    osg::ref_ptr<CategoryCmdInner> cmd = command(kCorner, 9);
    cmd->classTable.fill(0);
    cmd->classTable[2] = cmd->classTable[5] = 1;
    manager->pushCmd(cmd);
    EXPECT_TRUE(shows(first));
    manager->pushCmd(command(kLeft, 8));
    EXPECT_TRUE(shows(second));
    manager->pushKind1();
    EXPECT_TRUE(shows(first));
    manager->pushKind2();
    EXPECT_TRUE(shows(second));
    manager->pushKind3();
    EXPECT_TRUE(shows(before));
    manager->pushKind2();
    EXPECT_TRUE(shows(first)) << "what a reset takes back can be redone";
    EXPECT_EQ(storedClasses(path), before);
}

TEST_F(CpuCategoryOpTest, EditsALeafsCellAloneAndAGeometryOfTheHost)
{
    manager->removeMember(store.octree());
    CellData& cell = *store.octree()->root;
    const osg::ref_ptr<osg::Node> node = PCDataManager::getInstance()->acquireNodeOrCreate(&cell);
    auto& leaf = dynamic_cast<CellLeaf&>(*node);
    leaf.cell = &cell;

    // The host's geometry has the same points, in world coordinates, and one that is hidden.
    const osg::ref_ptr<osg::Geometry> own = new osg::Geometry;
    const osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    const osg::ref_ptr<osg::IntArray> categories = new osg::IntArray;
    const std::vector<bool> visible = visibleUnder(kCorner);
    std::vector<int> expectedOfHost;
    for (size_t i = 0; i < 3000; ++i) {
        vertices->push_back(records.position(i) - records.offset());
        categories->push_back(before[i] << 24 | 0x1234 | (records.flags(i) & 0x0F) << 16);
        expectedOfHost.push_back(visible[i] ? 77 << 24 | 0x1234 : categories->back());
    }
    own->setVertexArray(vertices);
    own->setVertexAttribArray(12, categories);
    const std::vector<int> beforeOfHost(categories->begin(), categories->end());

    for (osg::Referenced* member :
         {static_cast<osg::Referenced*>(&leaf), static_cast<osg::Referenced*>(leaf.getDrawable(0))}) {
        manager->addMember(member);
        manager->addMember(own);
        manager->pushCmd(command(kCorner, 77));
        Classes expected = before;
        for (const VelBrx::Segment& segment : cell.record.segments)
            for (int64_t i = segment.first; i < segment.first + segment.count; ++i)
                if (visible[i]) expected[i] = 77;
        ASSERT_NE(expected, before);
        EXPECT_TRUE(shows(expected));
        manager->pushKind1();
        EXPECT_TRUE(shows(before));
        manager->pushKind2();
        EXPECT_TRUE(shows(expected));
        manager->stop();
        EXPECT_EQ(std::vector<int>(categories->begin(), categories->end()), expectedOfHost);
        manager->start();
        manager->pushKind3();
        EXPECT_TRUE(shows(before));
        manager->stop();
        EXPECT_EQ(std::vector<int>(categories->begin(), categories->end()), beforeOfHost);
        manager->start();
        manager->removeMember(member);
    }
}

TEST_F(CpuCategoryOpTest, CarriesOutQueuedCommandsOnceEachInTheirOrderButThoseThatItCannot)
{
    manager->stop();
    manager->stop();
    const osg::ref_ptr<CategoryCmdInner> unknown = command(kCorner, 9);
    unknown->kind = 7;
    manager->pushCmd(unknown);
    manager->pushCmd(command(kCorner, 300));
    manager->pushCmd(new CategoryCmdInner);
    manager->pushCmd(nullptr);
    manager->pushKind1();
    manager->pushKind2();
    for (int toClass = 10; toClass < 40; ++toClass)
        manager->pushCmd(command(kLeft, toClass));
    for (int undo = 1; undo < 30; ++undo)
        manager->pushKind1();
    manager->start();
    manager->start();
    EXPECT_TRUE(shows(edited(before, visibleUnder(kLeft), 10)));
    osg::ref_ptr<PointCategoryManager> running = new PointCategoryManager;
    running->start();
    running = nullptr;
}

TEST_F(CpuCategoryOpTest, EditsCloudsWhereTheyStandWhenTheCommandComes)
{
    const Classes expected = edited(before, visibleUnder(kLeft), 4);
    const osg::Matrixd moved =
        osg::Matrixd::rotate(1, osg::Vec3d(1, 2, 3)) * osg::Matrixd::translate(1234567, 7654321, 250);
    const osg::ref_ptr<osg::MatrixTransform> place = new osg::MatrixTransform(moved);
    place->addChild(store.cloud);
    screen.view = osg::Matrixd::inverse(moved) * screen.view;
    manager->pushCmd(command(kLeft, 4));
    EXPECT_TRUE(shows(expected));
}

TEST_F(CpuCategoryOpTest, MakesEditsThatAreWrittenLikeThoseOfTheTool)
{
    const Classes expected = edited(before, visibleUnder(kLeft), 4);
    manager->pushCmd(command(kLeft, 4));
    ASSERT_TRUE(shows(expected));
    EXPECT_TRUE(CategoryCalcTool::getInstance()->hasUnwritten());
    ASSERT_TRUE(CategoryCalcTool::getInstance()->writeToStores().ok());
    EXPECT_EQ(readFile(path), withClasses(records.bytes(), expected));
    EXPECT_TRUE(CategoryCalcTool::getInstance()->getAllModify().empty()) << "of the tool's own";
}
