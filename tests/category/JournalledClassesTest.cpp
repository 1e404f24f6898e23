#include "edit/EditReplay.h"
#include "tests/category/CategoryScene.h"
#include "tests/support/NoRoom.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>
#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/EditJournalling.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/UndoCmd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

using namespace VelOsgDBBrx;
using VelBrx::EditEntry;
using VelBrx::EditHistory;
using VelBrx::EditJournal;
using VelBrx::journalPath;
using VelBrx::JournalPlace;
using VelBrx::verifyEdits;

namespace {

const std::string kUid = "journalled";
const std::vector<std::string> kNoProblems;
const Polygon kLeft = {{-50, -50}, {110, -50}, {110, 200}, {-50, 200}};

CategoryCalcTool& tool()
{
    return *CategoryCalcTool::getInstance();
}

/// A store whose journal is on, edited with the tool; what it is to be is worked out here.
class JournalledClasses : public ClassifiedScene
{
protected:
    void SetUp() override
    {
        tool().setPixelBufferTool(new ExactMaskTool);
        CullCmdManager::getInstance()->setPixelBufferTool(new ExactMaskTool);
        tool().registerCloud(kUid, store.cloud);
        switchOn(*store.octree());
        shownClasses(*store.octree()); // all cells are loaded
    }

    void TearDown() override
    {
        pushAndWait(Category::SAVE); // drops the undo records
        uint64_t points = 0;
        EXPECT_TRUE(EditJournalling::dropUnsaved(*store.octree(), points));
    }

    static std::string switchOn(OctreeInfo& octree, JournalPlace place = JournalPlace::BESIDE_STORE)
    {
        std::string note;
        const VelBrx::Status status = EditJournalling::switchOn(octree, "anna", note, place);
        EXPECT_TRUE(status) << status.message();
        return note;
    }

    osg::ref_ptr<CategoryReport> classify(const Polygon& polygon, int toClass)
    {
        const osg::ref_ptr<CategoryReport> report = pushAndWait(kUid, polygonEdit(polygon, screen, toClass));
        classes = edited(classes, visibleUnder(polygon), toClass);
        return report;
    }

    void hide(const Polygon& polygon) const
    {
        run(polygonCmd<CullCmd>(store.octree(), polygon, screen, Type::INSIDE));
    }

    /// Every reader sees `classes`, and so does a program that opens the files after a kill at this moment.
    void expectShown(const char* after)
    {
        EXPECT_TRUE(shownClasses(*store.octree()) == classes) << after;
        EXPECT_EQ(verifyEdits(path), kNoProblems) << after;
        const std::unique_ptr<LoadedStore> killed = afterKill();
        EXPECT_TRUE(shownClasses(*killed->octree()) == classes) << after << ", opened again";
        EXPECT_EQ(tool().countUnwritten()[killed->path], difference(storedClasses(path), classes).size())
            << after;
        uint64_t points = 0;
        EXPECT_TRUE(EditJournalling::dropUnsaved(*killed->octree(), points)) << after;
        EXPECT_TRUE(shownClasses(*killed->octree()) == storedClasses(path)) << after << ", dropped";
    }

    /// The store as the next program finds it when this one is killed now.
    std::unique_ptr<LoadedStore> afterKill()
    {
        const std::string name = "killed" + std::to_string(_kills++) + ".brx";
        folder.write(name, readFile(path));
        if (std::filesystem::exists(journalPath(path)))
            folder.write(name + ".edits", readFile(journalPath(path)));
        auto killed = std::make_unique<LoadedStore>(folder.file(name));
        note = switchOn(*killed->octree());
        return killed;
    }

    static EditHistory historyOf(const OctreeInfo& octree)
    {
        EditHistory history;
        EXPECT_TRUE(octree.journal->readHistory(history));
        return history;
    }

    Classes classes = before;
    std::string note; ///< of the last `afterKill`

private:
    int _kills = 0;
};

} // namespace

TEST_F(JournalledClasses, AreShownAgainAfterAKillBetweenAnyTwoStepsOfEditsUndosResetsAndSaves)
{
    const Classes original = classes;
    EXPECT_EQ(classify(kArrow, 40)->state(), CategoryReport::DONE);
    expectShown("an edit");
    EXPECT_NE(note.find("points have classes that are not saved yet"), std::string::npos) << note;
    const Classes first = classes;
    classify(kLeft, 41);
    expectShown("a second one");
    pushAndWait(Category::UNDO);
    classes = first;
    expectShown("its undo");
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_TRUE(storedClasses(path) == first);
    EXPECT_FALSE(tool().hasUnwritten());
    expectShown("a save");
    pushAndWait(Category::UNDO);
    classes = original;
    EXPECT_TRUE(tool().hasUnwritten()) << "undo goes back past a save";
    expectShown("an undo behind it");
    classify(kLeft, 42);
    classify(kArrow, 43);
    pushAndWait(Category::RESET);
    classes = original;
    EXPECT_TRUE(tool().getAllModify64().empty());
    expectShown("a reset");
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_TRUE(storedClasses(path) == original);

    const EditHistory history = historyOf(*store.octree());
    EXPECT_EQ(history.entries[0].author, "anna");
    EXPECT_EQ(history.entries[0].operation, R"({"op":"classify","to":40})");
    EXPECT_EQ(history.entries[2].kind, EditEntry::Kind::UNDO);
    EXPECT_EQ(history.entries[3].kind, EditEntry::Kind::SAVE);
    uint64_t points = 0;
    ASSERT_TRUE(moveStoreTo(*store.octree(), 2, {}, nullptr, points)) << "the history has every state";
    classes = edited(first, visibleUnder(kLeft), 41);
    expectShown("a state of the history");
    const uint64_t state = store.octree()->journal->state();
    ASSERT_TRUE(EditJournalling::dropUnsaved(*store.octree(), points));
    classes = original;
    expectShown("what was not saved was dropped");
    ASSERT_TRUE(moveStoreTo(*store.octree(), state, {}, nullptr, points));
    classes = edited(first, visibleUnder(kLeft), 41);
    expectShown("the undo of that");
}

TEST_F(JournalledClasses, AreTakenBackAmongHidesInAnyOrder)
{
    const osg::ref_ptr<osg::Node> root =
        PCDataManager::getInstance()->acquireNodeOrCreate(store.octree()->root); // stays loaded
    const auto rootBits = [&] {
        std::vector<int> bits(before.size(), -1);
        addLeafBits(root, bits);
        return bits;
    };
    const Bytes unedited = readFile(path);
    const std::vector<int> unhidden = rootBits();
    hide(kArrow);
    EXPECT_NE(rootBits(), unhidden);
    const osg::ref_ptr<PolygonCmd> everything = polygonEdit(kLeft, screen, 40);
    everything->base.flag = Base::HIDDEN_POINTS;
    pushAndWait(kUid, everything);
    const Classes done = shownClasses(*store.octree());
    const uint64_t state = store.octree()->journal->state();
    hide(kLeft);
    pushAndWait(Category::UNDO); // of a change that is not the newest
    classes = before;
    expectShown("the undo");
    EXPECT_EQ(historyOf(*store.octree()).entries.back().operation, R"({"op":"undo"})");
    uint64_t points = 0;
    ASSERT_TRUE(moveStoreTo(*store.octree(), 0, {}, nullptr, points));
    EXPECT_TRUE(readFile(path) == unedited);
    EXPECT_EQ(rootBits(), unhidden);
    ASSERT_TRUE(moveStoreTo(*store.octree(), state, {}, nullptr, points));
    classes = done;
    expectShown("a move forward over hides and classes");
    run(new UndoCmd(2));
    run(new UndoCmd(2));
}

TEST_F(JournalledClasses, AreTakenBackAfterTheStoreWasClosed)
{
    classify(kArrow, 40);
    LoadedStore other(writeClassifiedStore(folder, "other.brx"));
    tool().registerCloud(kUid, other.cloud);
    store = other;
    ASSERT_TRUE(pushAndWait(Category::UNDO)->status().ok());
    store = LoadedStore(path);
    tool().registerCloud(kUid, store.cloud);
    switchOn(*store.octree());
    classes = before;
    expectShown("an undo while it was closed");
    classify(kLeft, 41);
    store = other;
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_TRUE(storedClasses(path) == classes);
    EXPECT_EQ(verifyEdits(path), kNoProblems) << "a save while it was closed goes through the journal";
    store = LoadedStore(path);
}

TEST_F(JournalledClasses, ChangeInNoStoreWhereTheyCannotBeWrittenDownInOne)
{
    LoadedStore second(writeClassifiedStore(folder, "second.brx", 2));
    std::filesystem::create_directory(journalPath(second.path)); // nothing can be written there
    switchOn(*second.octree());
    tool().registerCloud("second", second.cloud);
    const osg::ref_ptr<CategoryBuffer> both = new CategoryBuffer;
    both->points = {{kUid, {1, 2, 3}}, {"second", {1}}};
    both->classes = {{kUid, {50, 50, 50}}, {"second", {50}}};
    const auto expectRefused = [&](const char* because) {
        const osg::ref_ptr<CategoryReport> report = pushAndWait(kUid, both);
        EXPECT_EQ(report->state(), CategoryReport::REFUSED) << because;
        EXPECT_EQ(report->counts().storesNotJournalled, 1u) << because;
        EXPECT_NE(report->status().message().find("second.brx"), std::string::npos)
            << report->status().message();
        EXPECT_FALSE(tool().hasUnwritten()) << because;
    };
    expectRefused("a folder has the journal's name");
    std::filesystem::remove(journalPath(second.path));
    for (int i = 0; i < 5; ++i) { // the journal of the first is the shorter one
        const osg::ref_ptr<CategoryBuffer> one = new CategoryBuffer;
        one->points["second"] = {1};
        one->classes["second"] = {50};
        pushAndWait("second", one);
        pushAndWait(Category::UNDO);
    }
    const size_t room = std::filesystem::file_size(journalPath(second.path));
    {
        const NoRoom noRoom(room);
        expectRefused("a full disk");
    }
    expectShown("the refusals");
    EXPECT_GE(historyOf(*store.octree()).entries.size(), 2u) << "the first had its edit, which is undone";
    {
        const NoRoom noRoom(room);
        EXPECT_EQ(switchOn(*second.octree(), JournalPlace::TEMPORARY), "");
        EXPECT_EQ(pushAndWait(kUid, both)->state(), CategoryReport::DONE) << "the user's choice";
        EXPECT_EQ(historyOf(*store.octree()).entries.back().time,
                  historyOf(*second.octree()).entries.back().time);
    }
    pushAndWait(Category::UNDO);
    EXPECT_FALSE(tool().hasUnwritten());
}

TEST_F(JournalledClasses, ThatWereEditedBeforeTheJournalWasOnAreInItFromThenOn)
{
    EditJournalling::switchOff(*store.octree());
    classify(kArrow, 40);
    EXPECT_FALSE(std::filesystem::exists(journalPath(path)));
    switchOn(*store.octree());
    expectShown("switching on");
    classify(kLeft, 41);
    pushAndWait(Category::UNDO);
    pushAndWait(Category::UNDO); // of the edit that had no journal
    classes = before;
    expectShown("undos of both");
    const auto switchOffInTheMiddle = [this] {
        classify(kArrow, 42);
        EditJournalling::switchOff(*store.octree());
        const uintmax_t size = std::filesystem::file_size(journalPath(path));
        classify(kLeft, 43);
        EXPECT_EQ(std::filesystem::file_size(journalPath(path)), size);
    };
    switchOffInTheMiddle();
    switchOn(*store.octree());
    expectShown("off and on");
    switchOffInTheMiddle();
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_TRUE(storedClasses(path) == classes);
    EXPECT_FALSE(tool().hasUnwritten());
}

TEST_F(JournalledClasses, KeepWhatSomethingElseWroteIntoTheStoreMeanwhile)
{
    classify(kArrow, 40);
    const std::vector<std::pair<int64_t, uint8_t>> changed = difference(before, classes);
    const auto foreign = static_cast<size_t>(changed[5].first);
    const std::string name = "foreign.brx";
    LasRecords written(path);
    written.classOf(foreign) = 77;
    folder.write(name, written.bytes());
    folder.write(name + ".edits", readFile(journalPath(path)));
    const LoadedStore opened(folder.file(name));
    const std::string found = switchOn(*opened.octree());
    EXPECT_NE(found.find("1 points keep the class that something else gave them"), std::string::npos)
        << found;
    Classes expected = classes;
    expected[foreign] = 77;
    EXPECT_TRUE(shownClasses(*opened.octree()) == expected);
    ASSERT_TRUE(tool().writeToStores().ok());
    EXPECT_TRUE(storedClasses(opened.path) == expected);
}
