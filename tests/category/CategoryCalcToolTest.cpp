#include "tests/category/CategoryScene.h"
#include "tests/support/HandOctree.h"
#include "tests/support/NoRoom.h"
#include "tests/support/OtherEditor.h"

#include <VelBrx/Verify.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <gtest/gtest.h>
#include <osgViewer/View>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace VelOsgDBBrx;

namespace fs = std::filesystem;

namespace {

const std::string kUid = "the cloud";

CategoryCalcTool& tool()
{
    return *CategoryCalcTool::getInstance();
}

bool isHidden(const LasRecords& records, size_t point)
{
    return records.flags(point) & kHiddenBits;
}

class CategoryCalcToolTest : public ClassifiedScene
{
protected:
    void SetUp() override
    {
        tool().setPixelBufferTool(new ExactMaskTool);
        tool().registerCloud(kUid, store.cloud);
    }

    void TearDown() override
    {
        pushAndWait(Category::RESET);
        const Status discarded = tool().writeToStores();
        EXPECT_TRUE(discarded.ok()) << discarded.message();
    }

    osg::ref_ptr<CategoryReport> editArrow(int toClass, bool dryRun = false)
    {
        return pushAndWait(kUid, polygonEdit(kArrow, screen, toClass), dryRun);
    }

    /// What an edit under the arrow makes of the store.
    Classes arrowEdited(int toClass) const { return edited(before, visibleUnder(kArrow), toClass); }

    /// What the tool lists as edited since the last save is what makes these classes of the store's.
    void expectModified(const Classes& classes, const std::string& why = "") const
    {
        EXPECT_EQ(tool().getAllModify64()[kUid], difference(before, classes)) << why;
    }

    using Status = VelBrx::Status;
};

} // namespace

TEST_F(CategoryCalcToolTest, EditsTheFromClassesOfEveryVisiblePointUnderThePolygonLoadedOrNot)
{
    const Classes expected =
        edited(before, visibleUnder(kArrow), 9, [&](size_t i) { return before[i] == 2 || before[i] == 5; });
    const osg::ref_ptr<CellData> loaded = store.octree()->root->children.front();
    const osg::ref_ptr<osg::Node> leaf = PCDataManager::getInstance()->acquireNodeOrCreate(loaded);
    const osg::ref_ptr<PolygonCmd> edit = polygonEdit(kArrow, screen, 9);
    edit->base.setFromClasses({2, 5, -1, 255, 1000});
    const CategoryReport::Counts counts = pushAndWait(kUid, edit)->counts();

    EXPECT_GT(counts.changed, 1000u);
    EXPECT_EQ(counts.changed, difference(before, expected).size());
    expectModified(expected);
    EXPECT_EQ(storedClasses(path), before) << "the store is written by its own call only";
    EXPECT_TRUE(tool().hasUnwritten());
    EXPECT_EQ(tool().countUnwritten()[path], counts.changed);

    Classes ofLeaf = expected;
    readLeaf(leaf, ofLeaf);
    EXPECT_EQ(ofLeaf, expected) << "in the cell that was loaded before the edit";
    EXPECT_EQ(shownClasses(*store.octree()), expected) << "in cells that are read after it";

    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(readFile(path), withClasses(records.bytes(), expected)) << "classes only, all of them";
    EXPECT_TRUE(VelBrx::verifyStore(path).empty());
    EXPECT_FALSE(tool().hasUnwritten());
    EXPECT_EQ(shownClasses(*store.octree()), expected);
    expectModified(expected, "writing is no save");
}

TEST_F(CategoryCalcToolTest, LeavesOutOfAMovedCloudWhatTheOperatorDoesNotSeeUnlessTheRecordWaivesThat)
{
    const osg::Vec3d middle(1234567, 7654321, 250);
    const osg::Matrixd moved = osg::Matrixd::rotate(1.1, osg::Vec3d(1, 2, 3)) *
                               osg::Matrixd::scale(1.5, 0.5, 2) * osg::Matrixd::translate(middle);
    store.octree()->transform = moved;
    screen = Screen::lookingAt({1234400, 7654100, 400}, middle);
    const std::vector<bool> under = pointsUnder(records, kArrow, screen, moved);
    // In world coordinates: x above the middle's less 10, and either z 5 above or y 30 below as well.
    const osg::Vec4d clip(1, 0, 0, 10 - middle.x());
    const std::vector<osg::Vec4d> section = {{0, 0, 1, -5 - middle.z()}, {0, -1, 0, middle.y() - 30}};
    const auto inPlanes = [&](size_t i) {
        const osg::Vec3d p = (records.position(i) - records.offset()) * moved - middle;
        return p.x() + 10 >= 0 && (p.z() - 5 >= 0 || -p.y() - 30 >= 0);
    };
    for (int flag = Base::VISIBLE_ONLY; flag <= Base::EVERYTHING; ++flag) {
        const Classes expected = edited(before, under, 9, [&](size_t i) {
            return ((flag & Base::HIDDEN_POINTS) || !isHidden(records, i)) &&
                   ((flag & Base::OUTSIDE_PLANES) || inPlanes(i)) &&
                   ((flag & Base::CLASSES_OFF) || before[i] != 4);
        });
        const osg::ref_ptr<PolygonCmd> edit = polygonEdit(kArrow, screen, 9);
        edit->base.flag = static_cast<uint8_t>(flag);
        edit->base.planesA = {clip};
        edit->base.planesB = section;
        edit->base.planesPerGroup = 1;
        edit->base.shownClasses.reset(4);
        EXPECT_GT(pushAndWait(kUid, edit)->counts().changed, 100u);
        expectModified(expected, "flag " + std::to_string(flag));
        pushAndWait(Category::RESET);
    }
}

TEST_F(CategoryCalcToolTest, TakesAllSectionPlanesAsOneGroupAndChangesClass255OnlyWithAFullTable)
{
    const std::vector<bool> under = visibleUnder(kArrow);
    osg::ref_ptr<PolygonCmd> edit = polygonEdit(kArrow, screen, 7);
    edit->base.planesB = {{0, 0, 1, -5}, {0, -1, 0, -5}};
    const Classes expected = edited(before, under, 7, [&](size_t i) {
        const osg::Vec3d p = records.position(i) - records.offset();
        return p.z() - 5 >= 0 && -p.y() - 5 >= 0;
    });
    pushAndWait(kUid, edit);
    expectModified(expected);
    pushAndWait(Category::RESET);

    edit = polygonEdit(kArrow, screen, 255);
    edit->base.classTable[200] = 0;
    pushAndWait(kUid, edit);
    expectModified(edited(before, under, 255));
    edit = polygonEdit(kArrow, screen, 1);
    edit->base.classTable[200] = 0;
    EXPECT_EQ(pushAndWait(kUid, edit)->counts().changed, 0u) << "of points of class 255";
}

TEST_F(CategoryCalcToolTest, UndoesEditsNewestFirstAndResetsToTheLastSave)
{
    const std::vector<bool> arrow = visibleUnder(kArrow);
    const std::vector<bool> all = visibleUnder(kEverything);
    const Classes first = edited(before, arrow, 8);
    const Classes second = edited(first, all, 9, [&](size_t i) { return first[i] == 8 || first[i] == 1; });
    const osg::ref_ptr<PolygonCmd> widened = polygonEdit(kEverything, screen, 9);
    widened->base.setFromClasses({8, 1});

    editArrow(8);
    pushAndWait(kUid, widened);
    EXPECT_EQ(shownClasses(*store.octree()), second);
    EXPECT_EQ(pushAndWait(Category::UNDO)->counts().changed, difference(first, second).size());
    EXPECT_EQ(shownClasses(*store.octree()), first);
    expectModified(first);

    tool().save();
    tool().waitUntilHandled();
    EXPECT_TRUE(tool().getAllModify().empty());
    EXPECT_TRUE(tool().hasUnwritten()) << "a save writes no store";
    EXPECT_EQ(pushAndWait(Category::UNDO)->counts().changed, 0u) << "undo stops at a save";
    pushAndWait(kUid, widened);
    pushAndWait(kUid, polygonEdit(kEverything, screen, 10));
    pushAndWait(Category::RESET);
    EXPECT_EQ(shownClasses(*store.octree()), first) << "reset stops at a save";
    EXPECT_EQ(pushAndWait(Category::UNDO)->counts().changed, 0u);

    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(storedClasses(path), first);
}

TEST_F(CategoryCalcToolTest, MarksTheModifiedLoadedCellsOfASave)
{
    const osg::ref_ptr<osg::Node> leaf =
        PCDataManager::getInstance()->acquireNodeOrCreate(store.octree()->root);
    const osg::Geometry* geometry = leaf->asGeode()->getDrawable(0)->asGeometry();
    const auto& indices = dynamic_cast<const osg::Vec2iArray&>(*geometry->getUserData());
    editArrow(8);
    EXPECT_EQ(indices.front(), osg::Vec2i(indices.front().x(), 0));
    pushAndWait(Category::SAVE);
    for (const osg::Vec2i& index : indices)
        ASSERT_EQ(index.y(), -1);
}

TEST_F(CategoryCalcToolTest, KeepsHiddenBitsThatChangeBetweenAnEditAndItsUndo)
{
    const osg::ref_ptr<osg::Node> leaf =
        PCDataManager::getInstance()->acquireNodeOrCreate(store.octree()->root);
    const osg::Geometry* geometry = leaf->asGeode()->getDrawable(0)->asGeometry();
    const auto& attribute = dynamic_cast<const osg::IntArray&>(*geometry->getVertexAttribArray(12));
    const std::vector<int> original(attribute.begin(), attribute.end());
    CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool);
    editArrow(8);
    run(polygonCmd<CullCmd>(store.octree(), kArrow, screen));
    pushAndWait(Category::UNDO);
    size_t culled = 0;
    for (size_t i = 0; i < original.size(); ++i) {
        EXPECT_EQ(attribute[i] & 0xFF00FFFF, original[i] & 0xFF00FFFF);
        culled += attribute[i] != original[i];
    }
    EXPECT_GT(culled, 100u);
}

TEST_F(CategoryCalcToolTest, EditsUnderAMaskOfAnotherSizeThanTheWindow)
{
    // A mask of 20 x 10 fields for the window of 200 x 150 pixels, set like a chessboard.
    const osg::ref_ptr<PixelBuffer> edit = new PixelBuffer;
    edit->base = polygonEdit({}, screen, 9)->base;
    edit->maskWidth = 20;
    edit->maskHeight = 10;
    edit->mask = new osg::Image;
    edit->mask->allocateImage(20, 10, 1, GL_LUMINANCE, GL_UNSIGNED_BYTE);
    for (int row = 0; row < 10; ++row)
        for (int column = 0; column < 20; ++column)
            *edit->mask->data(column, row) = (row + column) % 2;

    std::vector<bool> under(before.size());
    for (size_t i = 0; i < under.size(); ++i) {
        const osg::Vec4d window = osg::Vec4d(records.position(i) - records.offset(), 1) * screen.vpw();
        const double column = window.x() / window.w() / 10;
        const double row = (150 - window.y() / window.w()) / 15;
        const bool seen = window.w() > 0 && column > -1 && column < 20 && row > -1 && row < 10;
        under[i] = seen && (static_cast<int>(column) + static_cast<int>(row)) % 2;
    }
    pushAndWait(kUid, edit);
    const Classes expected = edited(before, under, 9, [&](size_t i) { return !isHidden(records, i); });
    EXPECT_GT(difference(before, expected).size(), 1000u);
    expectModified(expected);
}

TEST_F(CategoryCalcToolTest, AsksTheMaskToolForThePolygonOfAPixelBufferWithoutAMask)
{
    const osg::ref_ptr<PixelBuffer> edit = new PixelBuffer;
    edit->base = polygonEdit(kArrow, screen, 9)->base;
    for (const int scale : {0, 1, 3}) { // 0: no size is given
        edit->maskWidth = scale * screen.width;
        edit->maskHeight = scale * screen.height;
        pushAndWait(kUid, edit);
        const auto expected = difference(before, arrowEdited(9));
        const auto changed = tool().getAllModify64()[kUid];
        if (scale < 2) {
            EXPECT_EQ(changed, expected);
        } else {
            EXPECT_NEAR(changed.size(), expected.size(), expected.size() / 10.0) << "finer along the edges";
        }
        pushAndWait(Category::UNDO);
    }
    EXPECT_TRUE(tool().getAllModify().empty()) << "an undone cloud has no changes to list";
    EXPECT_TRUE(tool().getAllModify64().empty());
}

TEST_F(CategoryCalcToolTest, AppliesAPackageAsItsPreparedEditWithAnotherOutline)
{
    const osg::ref_ptr<PolygonCmd> prepared = polygonEdit(kEverything, screen, 9);
    prepared->base.setFromClasses({1, 2, 3});
    prepared->base.planesA = {{1, 0, 0, 10}};
    const osg::ref_ptr<Package> package = new Package;
    package->target = prepared;
    package->polygon = kArrow;
    package->planes = {{0, 0, 1, 5}};
    pushAndWait(kUid, package);
    const Classes expected = edited(before, visibleUnder(kArrow), 9, [&](size_t i) {
        const osg::Vec3d p = records.position(i) - records.offset();
        return before[i] <= 3 && p.x() + 10 >= 0 && p.z() + 5 >= 0;
    });
    expectModified(expected);
    EXPECT_EQ(prepared->base.polygon, kEverything);
}

TEST_F(CategoryCalcToolTest, GivesListedPointsOfSeveralCloudsTheirClassesAsOneEdit)
{
    const std::string otherPath = writeClassifiedStore(folder, "other.brx", 2, 500);
    LoadedStore other(otherPath);
    tool().registerCloud("other", other.octree());
    const Classes otherBefore = storedClasses(otherPath);
    const osg::ref_ptr<CategoryBuffer> edit = new CategoryBuffer;
    edit->points[kUid] = {19999, 3, 3, -7, 20000, 4};
    edit->classes[kUid] = {40, 10, 41, 1, 2, 200};
    edit->points["other"] = {0};
    edit->classes["other"] = {77};
    edit->flag = Base::HIDDEN_POINTS;
    EXPECT_EQ(pushAndWait("", edit)->counts().changed, 4u);

    Classes expected = before;
    expected[19999] = 40;
    expected[3] = 41;
    expected[4] = 200;
    expectModified(expected);
    EXPECT_EQ(tool().getAllModify()[kUid].at(1), std::make_pair(4, static_cast<char>(200)));
    EXPECT_EQ(shownClasses(*other.octree())[0], 77);
    pushAndWait(Category::UNDO);
    EXPECT_EQ(shownClasses(*store.octree()), before);
    EXPECT_EQ(shownClasses(*other.octree()), otherBefore);

    size_t hidden = 0;
    while (!isHidden(records, hidden))
        ++hidden;
    edit->points = {{kUid, {static_cast<int64_t>(hidden)}}};
    edit->classes = {{kUid, {99}}};
    edit->flag = Base::VISIBLE_ONLY;
    EXPECT_EQ(pushAndWait("", edit)->counts().changed, 0u);
}

TEST_F(CategoryCalcToolTest, ReachesTheOtherPointsOfCellsOfWhichAPartCannotBeMapped)
{
    CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool);
    const osg::ref_ptr<CellData> root = store.octree()->root;
    const osg::ref_ptr<osg::Node> whole = PCDataManager::getInstance()->acquireNodeOrCreate(root);
    std::vector<bool> reached = visibleUnder(kArrow);
    const auto cut = [&](CellData& cell) { // its middle third is out of reach
        const VelBrx::Segment all = cell.record.segments.at(0);
        const int64_t part = all.count / 3;
        const int64_t last = all.first + 2 * part;
        cell.record.segments = {{all.first, part}, {int64_t{1} << 40, part}, {last, all.count - 2 * part}};
        std::fill(reached.begin() + all.first + part, reached.begin() + last, false);
    };
    const VelBrx::Segment ofRoot = root->record.segments.at(0);
    visitCells(*root, cut);
    const Classes expected = edited(before, reached, 9);
    const auto expectShown = [&](const Classes& classes) {
        Classes ofLeaf = classes;
        readLeaf(whole, ofLeaf);
        EXPECT_EQ(ofLeaf, classes);
        expectModified(classes);
    };
    const CategoryReport::Counts counts = editArrow(9)->counts();
    EXPECT_GT(counts.cellsUnreadable, 3u);
    EXPECT_EQ(counts.changed, difference(before, expected).size());
    expectShown(expected);
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(storedClasses(path), expected);

    Classes listed = expected;
    const osg::ref_ptr<CategoryBuffer> points = new CategoryBuffer;
    points->flag = Base::HIDDEN_POINTS;
    const int64_t missing = ofRoot.first + ofRoot.count / 3;
    for (const int64_t i : {ofRoot.first, missing, ofRoot.first + ofRoot.count - 1}) {
        points->points[kUid].push_back(i);
        points->classes[kUid].push_back(44);
        if (i != missing) listed[static_cast<size_t>(i)] = 44;
    }
    EXPECT_EQ(pushAndWait("", points)->counts().changed, 2u);
    expectShown(listed);
    pushAndWait(Category::UNDO);
    expectShown(expected);

    const CmdResult hide = run(polygonCmd<CullCmd>(store.octree(), kArrow, screen));
    EXPECT_EQ(hide.cellsUnreadable, counts.cellsUnreadable);
    EXPECT_EQ(LasRecords(path).bytes(), withClasses(hidden(records, reached).bytes(), expected));
    EXPECT_EQ(run(new UndoCmd(2)).pointsChanged, hide.pointsChanged);
    pushAndWait(Category::RESET);
    expectShown(before);
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(readFile(path), records.bytes());
}

TEST_F(CategoryCalcToolTest, RefusesWhatItCannotDoAndGoesOn)
{
    const auto refused = [](const osg::ref_ptr<CategoryReport>& report, const std::string& why) {
        EXPECT_EQ(report->state(), CategoryReport::REFUSED);
        EXPECT_NE(report->status().message().find(why), std::string::npos) << report->status().message();
    };
    refused(pushAndWait(6), "kind 6");
    refused(pushAndWait(-1), "kind -1");
    refused(pushAndWait("", polygonEdit(kArrow, screen, 1)), "uid");
    refused(pushAndWait("nobody", polygonEdit(kArrow, screen, 1)), "\"nobody\"");
    refused(pushAndWait(kUid, nullptr), "record");
    refused(pushAndWait(kUid, new osg::Image), "record");
    refused(editArrow(256), "class 256");
    refused(pushAndWait(kUid, new PolygonCmd), "size");
    refused(pushAndWait(kUid, new PixelBuffer), "size");
    refused(pushAndWait(kUid, new Package), "polygon edit");
    osg::ref_ptr<PolygonCmd> edit = polygonEdit(kArrow, screen, 1);
    edit->target = new osg::Image;
    refused(pushAndWait(kUid, edit), "not a point cloud");
    edit = polygonEdit(kArrow, screen, 1);
    edit->base.vpw(2, 1) = std::numeric_limits<double>::quiet_NaN();
    refused(pushAndWait(kUid, edit), "matrix");
    const osg::ref_ptr<PixelBuffer> maskless = new PixelBuffer;
    maskless->base = polygonEdit(kArrow, screen, 1)->base;
    maskless->maskWidth = -4;
    refused(pushAndWait(kUid, maskless), "mask");
    const osg::ref_ptr<CategoryBuffer> uneven = new CategoryBuffer;
    uneven->points[kUid] = {1, 2};
    uneven->classes[kUid] = {1};
    refused(pushAndWait(kUid, uneven), "differ in number");

    EXPECT_TRUE(tool().takeRefusals().empty()) << "the reports have them";
    tool().push(osg::ref_ptr<Category>(new Category("nobody", polygonEdit(kArrow, screen, 1))));
    tool().push(osg::ref_ptr<Category>(new Category(kUid, polygonEdit(kArrow, screen, 256))));
    tool().waitUntilHandled();
    const std::vector<VelBrx::Status> refusals = tool().takeRefusals();
    ASSERT_EQ(refusals.size(), 2u);
    EXPECT_NE(refusals[0].message().find("\"nobody\""), std::string::npos);
    EXPECT_NE(refusals[1].message().find("class 256"), std::string::npos);
    EXPECT_TRUE(tool().takeRefusals().empty());

    EXPECT_TRUE(tool().getAllModify().empty());
    for (const Polygon& empty : {Polygon(), Polygon{{10, 10}, {90, 90}}})
        EXPECT_EQ(pushAndWait(kUid, polygonEdit(empty, screen, 1))->counts().selected, 0u);
    EXPECT_GT(editArrow(1)->counts().changed, 0u);
}

TEST_F(CategoryCalcToolTest, EditsTheTargetOfTheRecordBeforeTheCloudOfTheUid)
{
    LoadedStore other(writeClassifiedStore(folder, "other.brx", 3, 2000));
    const auto editTarget = [&](osg::Referenced* target, const std::string& uid, const std::string& name) {
        const osg::ref_ptr<PolygonCmd> edit = polygonEdit(kArrow, screen, 9);
        edit->target = target;
        pushAndWait(uid, edit);
        EXPECT_EQ(tool().countUnwritten().count(path), 0u);
        EXPECT_GT(tool().countUnwritten()[other.path], 0u);
        EXPECT_EQ(tool().getAllModify64().count(name), 1u) << name;
        pushAndWait(Category::UNDO);
    };
    editTarget(other.cloud, "any", "any");
    editTarget(other.octree(), kUid, other.path); // the uid is another cloud's
    tool().registerCloud("other", other.octree());
    editTarget(other.cloud, "any", "other");
    tool().unRegisterCloud("other");
}

TEST_F(CategoryCalcToolTest, EditsAllCloudsUnderAGroupOrOfAViewWithOneMask)
{
    class CountingTool : public ExactMaskTool
    {
    public:
        osg::ref_ptr<osg::Image> createMask(int width, int height) override
        {
            ++masks;
            return ExactMaskTool::createMask(width, height);
        }
        std::atomic<int> masks{0};
    };
    const osg::ref_ptr<CountingTool> masks = new CountingTool;
    tool().setPixelBufferTool(masks);
    LoadedStore other(writeClassifiedStore(folder, "other.brx", 3, 2000));
    LoadedStore elsewhere(writeClassifiedStore(folder, "elsewhere.brx", 4, 500));
    const osg::ref_ptr<osg::Group> group = new osg::Group;
    const osg::ref_ptr<osg::Group> hidden = new osg::Group;
    hidden->setNodeMask(0);
    hidden->addChild(other.cloud);
    group->addChild(hidden);
    group->addChild(store.cloud);
    const osg::ref_ptr<osgViewer::View> view = new osgViewer::View; // as a composite viewer has them
    view->setSceneData(group);
    PCViewerManager::getInstance()->registerView(view, "window");

    for (const bool byView : {false, true}) {
        const osg::ref_ptr<PolygonCmd> edit = polygonEdit(kArrow, screen, 9);
        if (!byView) edit->target = group;
        const auto report = pushAndWait(byView ? "window" : "any", edit);
        EXPECT_EQ(report->state(), CategoryReport::DONE) << report->status().message();
        const CategoryCalcTool::Modify64 changes = tool().getAllModify64();
        ASSERT_EQ(changes.size(), 2u);
        EXPECT_EQ(changes.at(kUid), difference(before, arrowEdited(9)));
        EXPECT_EQ(changes.at(other.path).size() + changes.at(kUid).size(), report->counts().changed);
        EXPECT_EQ(masks->masks, byView ? 2 : 1);
        EXPECT_EQ(pushAndWait(Category::UNDO)->counts().changed, report->counts().changed) << "one step";
    }
    PCViewerManager::getInstance()->unRegisterViewer("window");
    tool().setPixelBufferTool(nullptr);
    const osg::ref_ptr<PolygonCmd> empty = polygonEdit(kArrow, screen, 9);
    empty->target = new osg::Group;
    EXPECT_EQ(pushAndWait(kUid, empty)->state(), CategoryReport::REFUSED);
}

TEST_F(CategoryCalcToolTest, ShowsEditsToWhoeverOpensTheFileByAnyOfItsNames)
{
    LoadedStore second(path);
    const osg::ref_ptr<osg::Node> shared =
        PCDataManager::getInstance()->acquireNodeOrCreate(second.octree()->root);
    const Classes expected = arrowEdited(9);
    editArrow(9);
    EXPECT_EQ(shownClasses(*second.octree()), expected);

    store.cloud = nullptr;
    fs::create_hard_link(path, folder.file("hard.brx"));
    fs::create_symlink(path, folder.file("symbolic.brx"));
    for (const std::string& name :
         {path, folder.file("hard.brx"), folder.file("symbolic.brx"), fs::relative(path).string()})
        EXPECT_EQ(shownClasses(*LoadedStore(name).octree()), expected) << name;
    LoadedStore reopened(path);
    pushAndWait(Category::UNDO);
    EXPECT_EQ(shownClasses(*reopened.octree()), before) << "after an undo of an edit of the closed octree";

    // Saved and closed, moved, and opened by another name.
    tool().registerCloud(kUid, reopened.octree());
    const uint64_t changed = editArrow(9)->counts().changed;
    ASSERT_TRUE(tool().writeToStores().ok());
    reopened.cloud = second.cloud = nullptr;
    fs::remove(path);
    const LoadedStore linked(folder.file("hard.brx"));
    pushAndWait(Category::UNDO);
    EXPECT_EQ(tool().countUnwritten()[linked.path], changed);
    EXPECT_EQ(editArrow(9)->state(), CategoryReport::REFUSED) << "the cloud of the uid is closed";
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(readFile(linked.path), records.bytes());
}

TEST_F(CategoryCalcToolTest, SharesNothingBetweenAStoreAndItsCopy)
{
    const std::string copy = folder.file("copy.brx");
    fs::copy(path, copy);
    const Classes ofStore = arrowEdited(77);
    const Classes ofCopy = edited(before, visibleUnder(kEverything), 78);
    const osg::ref_ptr<osg::Node> leaf =
        PCDataManager::getInstance()->acquireNodeOrCreate(store.octree()->root);
    editArrow(77);
    store.cloud = nullptr;

    const LoadedStore twin(copy);
    EXPECT_NE(PCDataManager::getInstance()->acquireNodeOrCreate(twin.octree()->root), leaf);
    EXPECT_EQ(shownClasses(*twin.octree()), before);
    expectModified(ofStore, "of the store that was closed");
    tool().registerCloud(kUid, twin.octree());
    EXPECT_TRUE(tool().getAllModify64().empty());
    pushAndWait(kUid, polygonEdit(kEverything, screen, 78));
    EXPECT_EQ(shownClasses(*twin.octree()), ofCopy);
    EXPECT_EQ(shownClasses(*LoadedStore(path).octree()), ofStore);
    expectModified(ofCopy);
    EXPECT_EQ(tool().countUnwritten()[copy], difference(before, ofCopy).size());

    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(storedClasses(path), ofStore);
    EXPECT_EQ(storedClasses(copy), ofCopy);
    pushAndWait(Category::UNDO);
    EXPECT_EQ(shownClasses(*twin.octree()), before);
    EXPECT_EQ(shownClasses(*LoadedStore(path).octree()), ofStore);
}

TEST_F(CategoryCalcToolTest, WritesNoFileButTheOneThatWasEdited)
{
    const std::string copy = folder.file("copy.brx");
    fs::copy(path, copy);
    editArrow(9);
    store.cloud = nullptr;
    const std::string kept = folder.file("kept.brx");
    const auto refuses = [&] {
        const Status status = tool().writeToStores();
        EXPECT_NE(status.message().find(path + ": is no longer the store"), std::string::npos)
            << status.message();
        EXPECT_EQ(shownClasses(*LoadedStore(path).octree()), storedClasses(path));
    };
    fs::create_hard_link(path, kept);
    fs::remove(path);
    fs::copy(copy, path);
    refuses();
    fs::remove(path);
    fs::create_symlink(copy, path);
    refuses();

    // By another name of the file that was edited, the edits can be written.
    LoadedStore linked(kept);
    tool().registerCloud(kUid, linked.octree());
    const Polygon small = {{100.5, 60.5}, {125.5, 60.5}, {110.5, 90.5}};
    pushAndWait(kUid, polygonEdit(small, screen, 10));
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(storedClasses(kept), edited(arrowEdited(9), visibleUnder(small), 10));
    EXPECT_EQ(storedClasses(copy), before);
    fs::remove(path);
    fs::create_hard_link(kept, path);
    pushAndWait(Category::RESET);
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_EQ(storedClasses(kept), before);

    // Another store written over the bytes of the file.
    editArrow(9);
    linked.cloud = nullptr;
    const Bytes other = readFile(writeClassifiedStore(folder, "other.brx", 2, 25000));
    folder.write("kept.brx", other);
    EXPECT_FALSE(tool().writeToStores().ok());
    EXPECT_EQ(readFile(kept), other);
    folder.write("kept.brx", records.bytes());
}

TEST_F(CategoryCalcToolTest, KeepsTheEditsOfAStoreThatCannotBeWrittenAndWritesTheOthers)
{
    const std::string otherPath = writeClassifiedStore(folder, "another.brx", 2, 500);
    LoadedStore other(otherPath);
    const Bytes otherBefore = readFile(otherPath);
    tool().registerCloud("other", other.octree());
    const std::string moved = folder.file("moved.brx");
    std::filesystem::rename(otherPath, moved);
    const auto fails = [&](const std::string& why, int toClass) {
        editArrow(toClass);
        pushAndWait("other", polygonEdit(kArrow, screen, toClass));
        const Status status = tool().writeToStores();
        EXPECT_FALSE(status.ok());
        EXPECT_NE(status.message().find(otherPath + ": "), std::string::npos) << status.message();
        EXPECT_NE(status.message().find(why), std::string::npos) << status.message();
        EXPECT_EQ(storedClasses(path), arrowEdited(toClass));
        EXPECT_EQ(tool().countUnwritten().count(path), 0u);
        EXPECT_GT(tool().countUnwritten()[otherPath], 100u);
    };
    fails("cannot be opened", 9);
    std::filesystem::copy(path, otherPath);
    fails("no longer the store", 10);
    std::filesystem::remove(otherPath);
    std::filesystem::copy(moved, otherPath);
    std::filesystem::resize_file(otherPath, otherBefore.size() / 2);
    EXPECT_FALSE(tool().writeToStores().ok());
    EXPECT_EQ(std::filesystem::file_size(otherPath), otherBefore.size() / 2);
    std::filesystem::rename(moved, otherPath);
    EXPECT_TRUE(tool().writeToStores().ok());
    EXPECT_NE(readFile(otherPath), otherBefore);
}

TEST_F(CategoryCalcToolTest, RefusesEditsOfAStoreThatAnotherProcessEditsUnlessThatIsChosen)
{
    OtherEditor other(path);
    ASSERT_TRUE(other.edits());
    const auto report = editArrow(9);
    EXPECT_EQ(report->state(), CategoryReport::REFUSED);
    EXPECT_EQ(report->counts().storesBusy, 1u);
    EXPECT_EQ(report->status().message().rfind(path + ": is being edited by ", 0), 0u)
        << report->status().message();
    EXPECT_GT(editArrow(9, true)->counts().changed, 0u) << "only counted";
    EXPECT_FALSE(tool().hasUnwritten());
    store.octree()->pointFile->editAnyway();
    EXPECT_GT(editArrow(9)->counts().changed, 0u);
}

TEST_F(CategoryCalcToolTest, SaysHowManyPointsSomebodyElseChangedAndReplacesThemAtTheNextSave)
{
    const Classes ours = arrowEdited(9);
    editArrow(9);
    Classes theirs = before;
    size_t replaced = 0;
    for (size_t i = 0; i < theirs.size(); i += 7) {
        theirs[i] = i % 2 ? 200 : 9; // some as we do
        replaced += ours[i] != before[i] && theirs[i] == 200;
    }
    ASSERT_GT(replaced, 100u);
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
        .write(reinterpret_cast<const char*>(withClasses(readFile(path), theirs).data()),
               static_cast<std::streamsize>(std::filesystem::file_size(path)));

    const Status status = tool().writeToStores();
    EXPECT_NE(status.message().find(std::to_string(replaced) + " of the points"), std::string::npos)
        << status.message();
    Classes both = theirs;
    for (size_t i = 0; i < both.size(); ++i)
        if (ours[i] != before[i] && theirs[i] == before[i]) both[i] = ours[i];
    EXPECT_EQ(storedClasses(path), both);
    EXPECT_TRUE(tool().hasUnwritten());

    EXPECT_TRUE(tool().writeToStores().ok());
    for (size_t i = 0; i < both.size(); ++i)
        if (ours[i] != before[i]) both[i] = ours[i];
    EXPECT_FALSE(tool().hasUnwritten());
    EXPECT_EQ(storedClasses(path), both);
}

TEST_F(CategoryCalcToolTest, KeepsTheClassesThatADiskHasNoRoomForForAnotherTry)
{
    appendHole(path);
    editArrow(9);
    {
        const NoRoom noRoom(std::filesystem::file_size(path) / 3);
        const Status status = tool().writeToStores();
        EXPECT_NE(status.message().find(path + ": cannot be written"), std::string::npos) << status.message();
        EXPECT_GT(tool().countUnwritten()[path], 1000u);
    }
    EXPECT_TRUE(tool().writeToStores().ok());
    EXPECT_FALSE(tool().hasUnwritten());
    EXPECT_EQ(storedClasses(path), arrowEdited(9));
}

TEST_F(CategoryCalcToolTest, HandlesRequestsOfSeveralThreadsAndIsAskedMeanwhile)
{
    // Every edit covers the same points: whatever the order, one moment knows one class.
    const size_t reach = difference(before, arrowEdited(9)).size();
    std::atomic<bool> asking{true};
    std::thread asker([&] {
        while (asking) {
            const auto all = tool().getAllModify64();
            for (const auto& [uid, points] : all)
                for (const auto& point : points)
                    ASSERT_EQ(point.second, points.front().second);
            tool().hasUnwritten();
        }
    });
    std::vector<std::thread> pushers;
    std::atomic<size_t> handled{0};
    for (int t = 0; t < 4; ++t)
        pushers.emplace_back([&, t] {
            for (int i = 0; i < 5; ++i)
                handled += editArrow(10 + 5 * t + i)->counts().changed == reach;
        });
    for (std::thread& pusher : pushers)
        pusher.join();
    EXPECT_EQ(handled, 20u);
    for (int i = 0; i < 20; ++i)
        tool().pop();
    tool().waitUntilHandled();
    asking = false;
    asker.join();
    EXPECT_TRUE(tool().getAllModify64()[kUid].empty());
    EXPECT_EQ(shownClasses(*store.octree()), before);
}

namespace {

/// Pushes edits that take longer than the rest of the test, and gives their requests.
std::vector<osg::ref_ptr<Category>> pushMany(const LoadedStore& store)
{
    tool().registerCloud(kUid, store.cloud);
    const Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
    std::vector<osg::ref_ptr<Category>> requests;
    for (int i = 0; i < 500; ++i) {
        requests.push_back(new Category(kUid, polygonEdit(kEverything, screen, i % 200)));
        requests.back()->report = new CategoryReport;
        tool().push(requests.back());
    }
    return requests;
}

bool abandonsWhatIsQueuedAndKeepsWhatWasDone()
{
    TempFolder folder;
    LoadedStore store(writeClassifiedStore(folder));
    const std::vector<osg::ref_ptr<Category>> requests = pushMany(store);
    requests.front()->report->wait();
    tool().shutdown();
    tool().waitUntilHandled();
    int abandoned = 0;
    for (const osg::ref_ptr<Category>& request : requests)
        abandoned += request->report->wait() == CategoryReport::ABANDONED;
    const bool late = pushAndWait(Category::UNDO)->state() == CategoryReport::ABANDONED;
    return abandoned > 0 && late && tool().hasUnwritten() && tool().writeToStores().ok();
}

} // namespace

TEST(CategoryCalcToolEnd, AbandonsWhatIsQueuedAndKeepsWhatWasDone)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(abandonsWhatIsQueuedAndKeepsWhatWasDone() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(CategoryCalcToolEnd, LetsTheProcessExitWithRequestsQueuedForAStoreThatIsGone)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            {
                TempFolder folder;
                pushMany(LoadedStore(writeClassifiedStore(folder)));
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}
