#include "tests/support/CullScene.h"
#include "tests/support/NoRoom.h"
#include "tests/support/ReadFile.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/ResetCmd.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <gtest/gtest.h>

#include <memory>

using namespace VelOsgDBBrx;

namespace {

const Polygon kArrow = {{20.3, 30.2},   {170.7, 20.9}, {120.1, 75.4},
                        {180.6, 140.2}, {30.8, 110.7}, {75.2, 70.3}};
const Polygon kLeft = {{-50, -50}, {110, -50}, {110, 200}, {-50, 200}};
const Polygon kRight = {{90, -50}, {300, -50}, {300, 200}, {90, 200}};

/// Two copies of a store, the second with its journal on: an edit must do the same to both.
class JournalledCull : public testing::Test
{
protected:
    JournalledCull()
    {
        CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool);
        writeMarkedStore(folder, 20000, 1, "plain.brx");
        writeMarkedStore(folder, 20000, 1, "journalled.brx");
        open();
    }

    void TearDown() override { run(new AllUndoCmd(2)); }

    void open()
    {
        plain = std::make_unique<LoadedStore>(folder.file("plain.brx"));
        journalled = std::make_unique<LoadedStore>(path);
        std::string note;
        const VelBrx::Status status = EditJournalling::switchOn(*journalled->octree(), "anna", note);
        EXPECT_TRUE(status) << status.message();
    }

    std::vector<osg::observer_ptr<OctreeInfo>> both() const
    {
        return {plain->octree(), journalled->octree()};
    }

    template <class Cmd>
    CmdResult edit(const Polygon& polygon, Type type = Type::INSIDE) const
    {
        const osg::ref_ptr<Cmd> cmd = polygonCmd<Cmd>(plain->octree(), polygon, screen, type);
        auto octrees = both();
        cmd->setOctreeInfos(octrees);
        return run(cmd);
    }

    CmdResult reset() const
    {
        const osg::ref_ptr<ResetCmd> cmd = new ResetCmd(2);
        auto octrees = both();
        cmd->setOctreeInfos(octrees);
        return run(cmd);
    }

    static Bytes flagsOf(const std::string& store)
    {
        const LasRecords records(store);
        Bytes flags;
        for (size_t point = 0; point < records.size(); ++point)
            flags.push_back(records.flags(point));
        return flags;
    }

    /// Records and loaded cells have the same points hidden.
    void expectAlike(const char* after) const
    {
        EXPECT_TRUE(flagsOf(folder.file("plain.brx")) == flagsOf(path)) << after;
        EXPECT_EQ(leafBits(*plain), leafBits(*journalled)) << after;
    }

    static std::vector<int> leafBits(const LoadedStore& store)
    {
        const osg::ref_ptr<osg::Node> leaf =
            PCDataManager::getInstance()->acquireNodeOrCreate(store.octree()->root);
        std::vector<int> bits(20000, -1);
        addLeafBits(leaf, bits);
        return bits;
    }

    TempFolder folder;
    const std::string path = folder.file("journalled.brx");
    std::unique_ptr<LoadedStore> plain;
    std::unique_ptr<LoadedStore> journalled;
    const Screen screen = Screen::lookingAt({-90, -160, 120}, {3, -2, 1});
};

} // namespace

TEST_F(JournalledCull, HidesShowsAndTakesBackAsWithoutAJournal)
{
    expectAlike("loading"); // the roots stay loaded
    EXPECT_GT(edit<CullCmd>(kArrow).pointsChanged, 1000u);
    expectAlike("a hide");
    EXPECT_GT(edit<CullCmd>(kLeft, Type::OUTSIDE).pointsChanged, 1000u);
    EXPECT_GT(edit<XorCullCmd>(kRight).pointsChanged, 1000u);
    expectAlike("a hide outside and a bring-back");
    run(new UndoCmd(2)); // of the bring-back: hides nothing again
    run(new UndoCmd(2)); // of a hide that is not the journal's newest change
    expectAlike("two undos");
    run(new UndoCmd(2));
    expectAlike("three undos");
    edit<CullCmd>(kLeft);
    EXPECT_GT(run(new UndoCmd(2)).pointsChanged, 1000u);
    expectAlike("an undo");
    EXPECT_GT(reset().pointsChanged, 1000u);
    expectAlike("a reset");
    EXPECT_TRUE(VelBrx::needsRecovery(path)) << "the disk need not have it yet";
    EXPECT_EQ(VelBrx::verifyEdits(path), std::vector<std::string>());
    journalled.reset();
    EXPECT_FALSE(VelBrx::needsRecovery(path));
    VelBrx::EditHistory history;
    ASSERT_TRUE(VelBrx::readEditHistory(path, history));
    ASSERT_GE(history.entries.size(), 6u);
    EXPECT_EQ(history.entries[0].author, "anna");
    EXPECT_EQ(history.entries[0].operation, R"({"op":"cull"})");
    EXPECT_EQ(history.entries[1].operation, R"({"op":"cull","side":"outside"})");
    EXPECT_EQ(history.entries.back().operation, R"({"op":"reset"})");

    std::shared_ptr<VelBrx::EditJournal> journal;
    uint64_t points = 0;
    ASSERT_TRUE(VelBrx::EditJournal::open(path, journal));
    ASSERT_TRUE(journal->moveTo(0, "", nullptr, points));
    writeMarkedStore(folder, 20000, 1, "untouched.brx");
    EXPECT_TRUE(flagsOf(path) == flagsOf(folder.file("untouched.brx"))) << "every edit is undone";
    open(); // for the undos of TearDown
}

TEST_F(JournalledCull, TakesBackWhatWasHiddenBeforeTheStoreWasClosed)
{
    edit<CullCmd>(kArrow);
    plain.reset();
    journalled.reset();
    open();
    EXPECT_GT(run(new UndoCmd(2)).pointsChanged, 1000u);
    expectAlike("the undo");
}

TEST_F(JournalledCull, RefusesAnEditThatCannotBeWrittenDownUntilTheJournalIsSwitchedOff)
{
    const Bytes before = flagsOf(path);
    std::filesystem::create_directory(VelBrx::journalPath(path)); // nothing can be written there
    const CmdResult refused = edit<CullCmd>(kArrow);
    EXPECT_EQ(refused.storesNotJournalled, 1u);
    EXPECT_NE(refused.reason.find(VelBrx::journalPath(path)), std::string::npos) << refused.reason;
    EXPECT_GT(refused.pointsChanged, 1000u) << "the other store";
    EXPECT_TRUE(flagsOf(path) == before);
    run(new UndoCmd(2));
    EditJournalling::switchOff(*journalled->octree());
    const CmdResult done = edit<CullCmd>(kArrow);
    EXPECT_EQ(done.storesNotJournalled, 0u);
    expectAlike("the journal was switched off");
}

TEST_F(JournalledCull, FinishesWhatAKillBrokeOffWhenItIsSwitchedOnAgain)
{
    Bytes store = readFile(path);
    edit<CullCmd>(kArrow);
    const Bytes done = readFile(path);
    const Bytes journal = readFile(VelBrx::journalPath(path)); // without the mark of its end
    std::copy(done.begin(), done.begin() + static_cast<ptrdiff_t>(done.size() / 2), store.begin());
    folder.write("killed.brx", store);
    folder.write("killed.brx.edits", journal);
    const LoadedStore killed(folder.file("killed.brx"));
    std::string note;
    const VelBrx::Status status = EditJournalling::switchOn(*killed.octree(), "", note);
    EXPECT_TRUE(status) << status.message();
    EXPECT_NE(note.find("killed.brx: an edit that was broken off was finished"), std::string::npos) << note;
    EXPECT_TRUE(readFile(killed.path) == done);
}
