#include "tests/support/CullScene.h"
#include "tests/support/HandOctree.h"
#include "tests/support/NoRoom.h"
#include "tests/support/OtherEditor.h"

#include <VelBrx/Verify.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/ResetCmd.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <thread>

using namespace VelOsgDBBrx;

namespace {

/// Not convex, off the pixel grid.
const Polygon kArrow = {{20.3, 30.2},   {170.7, 20.9}, {120.1, 75.4},
                        {180.6, 140.2}, {30.8, 110.7}, {75.2, 70.3}};
const Polygon kLeft = {{-50, -50}, {110, -50}, {110, 200}, {-50, 200}};
const Polygon kRight = {{90, -50}, {300, -50}, {300, 200}, {90, 200}};
const Polygon kEverything = {{-5, -5}, {205, -5}, {205, 155}, {-5, 155}};

Screen overview()
{
    return Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
}

CmdResult reset(const LoadedStore& store)
{
    const osg::ref_ptr<ResetCmd> cmd = new ResetCmd(2);
    auto infos = store.infos();
    cmd->setOctreeInfos(infos);
    return run(cmd);
}

uint64_t countDifferences(const LasRecords& a, const LasRecords& b)
{
    uint64_t count = 0;
    for (size_t i = 0; i < a.size(); ++i)
        count += a.flags(i) != b.flags(i);
    return count;
}

bool sameBytes(const LasRecords& a, const LasRecords& b)
{
    return a.bytes() == b.bytes();
}

class CullCmdTest : public testing::Test
{
protected:
    void SetUp() override { CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool); }
    void TearDown() override { run(new AllUndoCmd(2)); }

    LasRecords records() const { return LasRecords(path); }

    TempFolder folder;
    std::string path = writeMarkedStore(folder);
    LoadedStore store{path};
    Screen screen = overview();
    const LasRecords before{path};

    /// Hides what is under a polygon, exactly that and more than `atLeast` points, and takes it back.
    void expectHidden(const Polygon& polygon, uint64_t atLeast)
    {
        const LasRecords expected = hidden(before, pointsUnder(before, polygon, screen));
        EXPECT_GT(run(polygonCmd<CullCmd>(store.octree(), polygon, screen)).pointsChanged, atLeast);
        EXPECT_TRUE(sameBytes(records(), expected));
        run(new UndoCmd(2));
        EXPECT_TRUE(sameBytes(records(), before));
    }
};

} // namespace

TEST_F(CullCmdTest, HidesTheVisiblePointsUnderThePolygonAndTouchesNoOtherByte)
{
    const LasRecords expected = hidden(before, pointsUnder(before, kArrow, screen));
    const CmdResult result = run(polygonCmd<CullCmd>(store.octree(), kArrow, screen));

    EXPECT_TRUE(sameBytes(records(), expected));
    EXPECT_EQ(result.state, CmdResult::DONE);
    EXPECT_EQ(result.pointsChanged, countDifferences(before, expected));
    EXPECT_GT(result.pointsChanged, 1000u);
    EXPECT_EQ(result.storesGone + result.storesReadOnly + result.cellsUnreadable, 0u);
    EXPECT_TRUE(VelBrx::verifyStore(path).empty());

    run(new UndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), before));
}

TEST_F(CullCmdTest, TakesPolygonsOfEveryShape)
{
    Polygon flower;
    for (int i = 0; i < 5000; ++i) {
        const double angle = i * 2 * M_PI / 5000;
        flower.push_back(osg::Vec2d(100, 75) +
                         osg::Vec2d(std::cos(angle), std::sin(angle)) * 60 * std::cos(8 * angle));
    }
    const Polygon star = {{100, 5.5}, {140.5, 140.5}, {10.5, 50.5}, {190.5, 50.5}, {60.5, 140.5}};
    const Polygon far = {{-4e5, 10.5}, {3e6, 10.5}, {60.5, 7e5}};
    for (const Polygon& polygon : {flower, star, far, kEverything})
        expectHidden(polygon, 500);
}

TEST_F(CullCmdTest, StaysOnTheDataOfReversedAndOffCentreWindows)
{
    const osg::Matrixd projection = screen.projection;
    for (const osg::Vec3d& turn : {osg::Vec3d(-1, 1, 1), osg::Vec3d(1, -1, 1), osg::Vec3d(-0.4, 0.6, 1)}) {
        screen.projection = projection * osg::Matrixd::scale(turn) *
                            osg::Matrixd::translate(0.3 * (1 - std::abs(turn.x())), 0.1, 0);
        expectHidden(kArrow, 500);
    }
}

TEST_F(CullCmdTest, ChangesNothingWithoutAProperPolygon)
{
    for (const Polygon& polygon : {Polygon{}, Polygon{{50, 50}}, Polygon{{10, 10}, {150, 120}}})
        for (const Type type : {Type::INSIDE, Type::OUTSIDE}) {
            EXPECT_EQ(run(polygonCmd<CullCmd>(store.octree(), polygon, screen, type)).pointsChanged, 0u);
            EXPECT_EQ(run(polygonCmd<XorCullCmd>(store.octree(), polygon, screen, type)).pointsChanged, 0u);
        }
    EXPECT_TRUE(sameBytes(records(), before));
}

TEST_F(CullCmdTest, HidesOnlyWhatIsInFrontOfACameraInsideTheCloudHoweverNear)
{
    screen = Screen::lookingAt({0, 0, 0}, {10, 3, -2});
    expectHidden(kEverything, 100);
    double fieldOfView = 0, aspect = 0, near = 0, far = 0;
    screen.projection.getPerspective(fieldOfView, aspect, near, far);
    screen.projection.makePerspective(fieldOfView, aspect, 1000, 2000); // as a frame of far things leaves it
    expectHidden(kEverything, 100);
}

TEST_F(CullCmdTest, OutsideHidesEverythingElseAlsoBehindTheCamera)
{
    screen = Screen::lookingAt({0, 0, 0}, {10, 3, -2});
    std::vector<bool> others = pointsUnder(before, kArrow, screen);
    others.flip();
    EXPECT_GT(run(polygonCmd<CullCmd>(store.octree(), kArrow, screen, Type::OUTSIDE)).pointsChanged, 15000u);
    EXPECT_TRUE(sameBytes(records(), hidden(before, others)));
    run(new UndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), before));
}

TEST_F(CullCmdTest, ReadsNoCellBeyondThePolygonsFrustumAndReportsCellsItCannotRead)
{
    size_t cells = 0;
    visitCells(*store.octree()->root, [&](CellData& cell) {
        cell.record.segments[0].first = int64_t{1} << 40;
        ++cells;
    });
    const Polygon corner = {{60, 60}, {64, 60}, {64, 64}, {60, 64}};
    const Polygon above = {{0, -200}, {200, -200}, {200, -100}, {0, -100}};
    const CmdResult whole = run(polygonCmd<CullCmd>(store.octree(), kEverything, screen));
    const CmdResult part = run(polygonCmd<CullCmd>(store.octree(), corner, screen));
    EXPECT_EQ(whole.cellsUnreadable, cells);
    EXPECT_EQ(whole.pointsChanged, 0u);
    EXPECT_GT(part.cellsUnreadable, 0u);
    EXPECT_LT(part.cellsUnreadable, cells / 2);
    EXPECT_EQ(run(polygonCmd<CullCmd>(store.octree(), above, screen)).cellsUnreadable, 0u);
}

TEST_F(CullCmdTest, NeverHidesAPointOutsideOneClipPlane)
{
    const osg::Matrixd moved = osg::Matrixd::translate(1000, -2000, 30);
    store.octree()->transform = moved;
    screen = Screen::lookingAt({800, -2200, 200}, {1000, -2000, 30});
    std::vector<osg::Vec4d> planes = {{1, 0, 0, -990}, {0, 0, -1, 55}}; // world x >= 990, z <= 55
    const auto cmd = polygonCmd<CullCmd>(store.octree(), kArrow, screen);
    cmd->setClipPlane(planes);

    std::vector<bool> under = pointsUnder(before, kArrow, screen, moved);
    for (size_t i = 0; i < before.size(); ++i) {
        const osg::Vec3d world = (before.position(i) - before.offset()) * moved;
        if (world.x() < 990 || world.z() > 55) under[i] = false;
    }
    EXPECT_GT(run(cmd).pointsChanged, 300u);
    EXPECT_TRUE(sameBytes(records(), hidden(before, under)));
}

TEST_F(CullCmdTest, UndoesOverlappingCullsInOrder)
{
    const LasRecords left = hidden(before, pointsUnder(before, kLeft, screen));
    const LasRecords both = hidden(left, pointsUnder(before, kRight, screen));
    run(polygonCmd<CullCmd>(store.octree(), kLeft, screen));
    run(polygonCmd<CullCmd>(store.octree(), kRight, screen));
    EXPECT_TRUE(sameBytes(records(), both));

    const osg::ref_ptr<UndoCmd> undo = new UndoCmd(2);
    EXPECT_EQ(run(undo).pointsChanged, countDifferences(left, both));
    EXPECT_TRUE(sameBytes(records(), left)) << "points that the first cull hid stay hidden";
    run(new UndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), before)) << "points hidden from the start stay hidden";
    EXPECT_EQ(run(new UndoCmd(2)).pointsChanged, 0u);

    run(polygonCmd<CullCmd>(store.octree(), kLeft, screen));
    run(polygonCmd<CullCmd>(store.octree(), kRight, screen));
    run(new AllUndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), before));
}

TEST_F(CullCmdTest, ACommandOfTheHostsIsUndoneByItselfAndNotSaved)
{
    std::vector<bool> onlyLeft = pointsUnder(before, kLeft, screen);
    const std::vector<bool> right = pointsUnder(before, kRight, screen);
    for (size_t i = 0; i < right.size(); ++i)
        onlyLeft[i] = onlyLeft[i] && !right[i];
    run(polygonCmd<CullCmd>(store.octree(), kRight, screen));
    const auto ofHost = polygonCmd<CullCmd>(store.octree(), kLeft, screen, Type::INSIDE, false);
    const uint64_t points = run(ofHost).pointsChanged;
    run(new UndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), hidden(before, onlyLeft))) << "the saved one is the other";
    EXPECT_EQ(run(new UndoCmd(2, ofHost)).pointsChanged, points);
    EXPECT_TRUE(sameBytes(records(), before));
}

TEST_F(CullCmdTest, UncullShowsEveryHiddenPointAndItsUndoDoesNotHideThemAgain)
{
    const LasRecords left = hidden(before, pointsUnder(before, kLeft, screen));
    const LasRecords expected = shown(left, pointsUnder(before, kArrow, screen));
    run(polygonCmd<CullCmd>(store.octree(), kLeft, screen));
    EXPECT_EQ(run(polygonCmd<XorCullCmd>(store.octree(), kArrow, screen)).pointsChanged,
              countDifferences(left, expected));
    EXPECT_TRUE(sameBytes(records(), expected));

    run(new UndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), expected));
    run(new UndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), shown(before, pointsUnder(before, kArrow, screen))));
}

TEST_F(CullCmdTest, ResetShowsEveryPointAndLeavesTheUndoStack)
{
    const LasRecords all = shown(before, std::vector<bool>(before.size(), true));
    run(polygonCmd<CullCmd>(store.octree(), kLeft, screen));
    const LasRecords culled = records();
    EXPECT_EQ(reset(store).pointsChanged, countDifferences(culled, all));
    EXPECT_TRUE(sameBytes(records(), all));

    run(polygonCmd<CullCmd>(store.octree(), kRight, screen));
    run(new AllUndoCmd(2));
    EXPECT_TRUE(sameBytes(records(), all));
}

TEST_F(CullCmdTest, LeavesAReadOnlyStoreAndSaysSo)
{
    constexpr uid_t kNobody = 65534;
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(path, std::filesystem::perms(0444));
    const bool isSuperuser = geteuid() == 0; // who may write every file
    if (isSuperuser) {
        ASSERT_EQ(seteuid(kNobody), 0);
    }
    const LoadedStore readOnly(path);
    if (isSuperuser) {
        ASSERT_EQ(seteuid(0), 0);
    }

    const CmdResult result = run(polygonCmd<CullCmd>(readOnly.octree(), kArrow, screen));
    EXPECT_EQ(result.pointsChanged, 0u);
    EXPECT_EQ(result.storesReadOnly, 1u);
    EXPECT_EQ(reset(readOnly).storesReadOnly, 1u);
    EXPECT_TRUE(sameBytes(records(), before));
}

TEST_F(CullCmdTest, LeavesAStoreThatAnotherProcessEditsUnlessThatIsChosen)
{
    OtherEditor other(path);
    ASSERT_TRUE(other.edits());
    for (const CmdResult& result : {run(polygonCmd<CullCmd>(store.octree(), kArrow, screen)), reset(store)}) {
        EXPECT_EQ(result.storesBusy, 1u);
        EXPECT_EQ(result.pointsChanged, 0u);
        EXPECT_EQ(result.reason.rfind(path + ": is being edited by ", 0), 0u) << result.reason;
    }
    EXPECT_TRUE(sameBytes(records(), before));
    store.octree()->pointFile->editAnyway();
    expectHidden(kArrow, 1000);
}

TEST_F(CullCmdTest, HidesAndTakesBackWhatTheDiskHasRoomForAndTheRestAtAnotherTry)
{
    appendHole(path);
    const LoadedStore holed(path);
    const LasRecords withHole = records();
    const osg::ref_ptr<osg::Node> leaf =
        PCDataManager::getInstance()->acquireNodeOrCreate(holed.octree()->root);
    const auto runWithout = [](uint64_t room, BaseCmd* cmd) {
        const NoRoom noRoom(room);
        const CmdResult result = run(cmd);
        EXPECT_GT(result.cellsUnwritten, 0u);
        EXPECT_NE(result.reason.find("make room"), std::string::npos) << result.reason;
        return result.pointsChanged;
    };
    const auto expectShownAsStored = [&](const LasRecords& stored) {
        std::vector<int> bits(stored.size(), -1);
        addLeafBits(leaf, bits);
        for (size_t i = 0; i < bits.size(); ++i)
            if (bits[i] >= 0) {
                ASSERT_EQ(bits[i], stored.flags(i) & 0x0F) << i;
            }
    };
    const uint64_t left = run(polygonCmd<CullCmd>(holed.octree(), kLeft, screen)).pointsChanged;
    const uint64_t changed =
        runWithout(before.bytes().size() / 2, polygonCmd<CullCmd>(holed.octree(), kEverything, screen));
    EXPECT_GT(changed, 1000u);
    EXPECT_EQ(left + changed, countDifferences(withHole, records()));
    expectShownAsStored(records());

    const uint64_t quarter = before.bytes().size() / 4;
    const uint64_t undone = runWithout(quarter, new UndoCmd(2));
    EXPECT_GT(undone, 100u);
    EXPECT_EQ(left + changed - undone, countDifferences(withHole, records()));
    expectShownAsStored(records());
    const uint64_t undoneOfBoth = runWithout(quarter, new AllUndoCmd(2));
    EXPECT_GT(undoneOfBoth, 100u) << "of the first";
    EXPECT_EQ(run(new UndoCmd(2)).pointsChanged, changed - undone) << "the newest comes first";
    EXPECT_EQ(run(new UndoCmd(2)).pointsChanged, left - undoneOfBoth);
    EXPECT_TRUE(sameBytes(records(), withHole));
    expectShownAsStored(records());
    EXPECT_EQ(run(new UndoCmd(2)).pointsChanged, 0u);
    const uint64_t shown = reset(holed).pointsChanged;
    EXPECT_EQ(shown, countDifferences(withHole, records()));
}

TEST_F(CullCmdTest, AnUndoFollowsTheFileToAnotherOfItsNames)
{
    namespace fs = std::filesystem;
    const std::string moved = folder.file("moved.brx");
    const std::string copy = folder.file("copy.brx");
    const uint64_t points = run(polygonCmd<CullCmd>(store.octree(), kArrow, screen)).pointsChanged;
    const Bytes edited = readFile(path);
    fs::copy(path, copy);
    store.cloud = nullptr;
    fs::rename(path, moved);
    fs::rename(copy, path);
    const LoadedStore followed(moved);
    const LoadedStore other(path);
    const osg::ref_ptr<osg::Node> leaf =
        PCDataManager::getInstance()->acquireNodeOrCreate(followed.octree()->root);
    EXPECT_EQ(run(new UndoCmd(2)).pointsChanged, points);
    EXPECT_EQ(readFile(moved), before.bytes());
    EXPECT_EQ(readFile(path), edited) << "a copy at the old name";
    std::vector<int> bits(before.size(), -1);
    addLeafBits(leaf, bits);
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i] >= 0) {
            ASSERT_EQ(bits[i], before.flags(i) & 0x0F);
        }
}

TEST_F(CullCmdTest, LeavesAStoreWhosePathLeadsElsewhereByNow)
{
    namespace fs = std::filesystem;
    const std::string moved = folder.file("moved.brx");
    const std::string other = writeMarkedStore(folder, 500, 2, "other.brx");
    const std::string link = folder.file("link.brx");
    fs::create_symlink(path, link);
    const LoadedStore linked(link);
    fs::remove(link);
    fs::create_symlink(other, link);
    EXPECT_EQ(run(polygonCmd<CullCmd>(linked.octree(), kArrow, screen)).storesReplaced, 1u);
    EXPECT_TRUE(sameBytes(records(), before));

    run(polygonCmd<XorCullCmd>(store.octree(), kRight, screen));
    run(polygonCmd<CullCmd>(store.octree(), kLeft, screen));
    const osg::ref_ptr<osg::Node> leaf =
        PCDataManager::getInstance()->acquireNodeOrCreate(store.octree()->root);
    const Bytes edited = readFile(path);
    const Bytes otherBefore = readFile(other);
    fs::rename(path, moved);
    for (const bool replaced : {false, true}) {
        if (replaced) fs::copy(other, path);
        for (const CmdResult& result :
             {run(polygonCmd<CullCmd>(store.octree(), kEverything, screen)),
              run(polygonCmd<CullCmd>(store.octree(), kArrow, screen, Type::OUTSIDE)),
              run(polygonCmd<XorCullCmd>(store.octree(), kEverything, screen)), reset(store)}) {
            EXPECT_EQ(result.storesReplaced, 1u);
            EXPECT_EQ(result.pointsChanged, 0u);
        }
    }
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(run(new UndoCmd(2)).storesReplaced, 0u) << "those have nothing to take back";
    EXPECT_EQ(run(new UndoCmd(2)).storesReplaced, 1u) << "of the hide";
    EXPECT_EQ(run(new AllUndoCmd(2)).storesReplaced, 1u) << "of what was brought back";
    EXPECT_EQ(readFile(moved), edited);
    EXPECT_EQ(readFile(path), otherBefore);
    std::vector<int> bits(before.size(), -1);
    addLeafBits(leaf, bits);
    const LasRecords inFile(edited);
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i] >= 0) {
            ASSERT_EQ(bits[i], inFile.flags(i) & 0x0F) << "the picture is as the file";
        }

    fs::rename(moved, path);
    EXPECT_GT(reset(store).pointsChanged, 0u);
    EXPECT_EQ(readFile(path), shown(before, std::vector<bool>(before.size(), true)).bytes());
}

TEST_F(CullCmdTest, ReportsAMissingOrUselessMask)
{
    class WrongSize : public ExactMaskTool
    {
    public:
        osg::ref_ptr<osg::Image> createMask(int width, int height) override
        {
            return ExactMaskTool::createMask(width + 1, height);
        }
    };
    CullCmdManager* manager = CullCmdManager::getInstance();
    for (PixelBufferTool* tool :
         {static_cast<PixelBufferTool*>(nullptr), static_cast<PixelBufferTool*>(new WrongSize)}) {
        manager->setPixelBufferTool(tool);
        EXPECT_EQ(manager->getPixelBufferTool(), tool);
        EXPECT_TRUE(run(polygonCmd<CullCmd>(store.octree(), kArrow, screen)).maskMissing);
        EXPECT_TRUE(run(polygonCmd<CullCmd>(store.octree(), kArrow, screen, Type::OUTSIDE)).maskMissing);
    }
    manager->setPixelBufferTool(new ExactMaskTool);
    Polygon nowhere = kArrow;
    nowhere[1].y() = std::numeric_limits<double>::quiet_NaN();
    for (const Type type : {Type::INSIDE, Type::OUTSIDE})
        EXPECT_TRUE(run(polygonCmd<CullCmd>(store.octree(), nowhere, screen, type)).maskMissing);
    screen.width = 0;
    EXPECT_TRUE(run(polygonCmd<CullCmd>(store.octree(), kArrow, screen)).maskMissing);
    EXPECT_TRUE(sameBytes(records(), before));
}

TEST_F(CullCmdTest, SkipsAStoreThatDiesWhileItsCommandWaits)
{
    const std::string otherPath = writeMarkedStore(folder, 500, 2, "other.brx");
    auto other = std::make_unique<LoadedStore>(otherPath);
    const auto cmd = polygonCmd<CullCmd>(other->octree(), kEverything, screen);
    auto infos = other->infos();
    infos.push_back(store.octree());
    cmd->setOctreeInfos(infos);
    const Bytes otherBefore = readFile(otherPath);

    const osg::ref_ptr<Gate> gate = new Gate;
    CullCmdManager::getInstance()->push(gate);
    CullCmdManager::getInstance()->push(cmd);
    other.reset();
    gate->open();
    cmd->block();
    EXPECT_FALSE(gate->isSave());
    EXPECT_EQ(cmd->getResult().storesGone, 1u);
    EXPECT_GT(cmd->getResult().pointsChanged, 1000u) << "the store that lives is edited";
    EXPECT_EQ(readFile(otherPath), otherBefore);
}

TEST_F(CullCmdTest, ReachesCellsThatOnlyAnotherOctreeOfTheStoreHolds)
{
    const LoadedStore twin(path);
    const osg::ref_ptr<osg::Node> leaf =
        PCDataManager::getInstance()->acquireNodeOrCreate(twin.octree()->root);
    run(polygonCmd<CullCmd>(store.octree(), kEverything, screen));
    const LasRecords now = records();
    std::vector<int> bits(now.size(), -1);
    addLeafBits(leaf, bits);
    int hiddenPoints = 0;
    for (size_t i = 0; i < bits.size(); ++i) {
        if (bits[i] < 0) continue;
        EXPECT_EQ(bits[i], now.flags(i) & kHiddenBits);
        hiddenPoints += bits[i] == kCulledBit;
    }
    EXPECT_GT(hiddenPoints, 1000);
}

TEST_F(CullCmdTest, WaitsForThePassThatHasTheStore)
{
    OctreeInfo* octree = store.octree();
    const auto cmd = polygonCmd<CullCmd>(store.octree(), kArrow, screen);
    octree->busy = 1;
    {
        const std::lock_guard<std::mutex> pass(octree->pointFile->mutex);
        CullCmdManager::getInstance()->push(cmd);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(cmd->getResult().state, CmdResult::WAITING);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(cmd->getResult().state, CmdResult::WAITING);
    EXPECT_FALSE(octree->dirty);
    octree->busy = 0;
    cmd->block();
    EXPECT_GT(cmd->getResult().pointsChanged, 1000u);
    EXPECT_TRUE(octree->dirty);
    EXPECT_EQ(octree->busy, 0u);
    EXPECT_TRUE(octree->pointFile->mutex.try_lock());
    octree->pointFile->mutex.unlock();
}
