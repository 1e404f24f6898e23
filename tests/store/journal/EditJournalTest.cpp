#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "tests/support/EditedStore.h"
#include "tests/support/NoRoom.h"
#include "tests/support/OtherEditor.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/EditHistory.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace VelBrx;
using Change = EditedStore::Change;

namespace {

constexpr uint32_t kPoints = 3000;

using Bytes = std::vector<uint8_t>;

/// Points in runs of all lengths, mostly ascending, none twice.
std::vector<Change> randomChanges(std::mt19937& random, uint32_t count, bool ofOneValue)
{
    const auto value = static_cast<uint8_t>(random() % 16);
    std::vector<Change> changes;
    for (uint32_t point = random() % 50; point < count;) {
        const uint32_t length = random() % 3 ? 1 + random() % 3 : random() % 300;
        for (const uint32_t end = std::min(count, point + length); point < end; ++point)
            changes.push_back({point, ofOneValue ? value : static_cast<uint8_t>(random() % 16)});
        point += random() % 60;
    }
    if (changes.size() > 20) std::rotate(changes.begin(), changes.begin() + 20, changes.end());
    return changes;
}

Bytes hidden(Bytes store, const std::vector<Change>& changes)
{
    for (const Change& change : changes) {
        uint8_t& byte = store[EditedStore::kStart + change.point * 36 + 15];
        byte = static_cast<uint8_t>((byte & 0xF0) | change.value);
    }
    return store;
}

/// While it lives, $TMPDIR is a folder.
class TemporaryFolderVariable
{
public:
    explicit TemporaryFolderVariable(const std::string& folder)
    {
        if (const char* const before = std::getenv("TMPDIR")) _before = before;
        setenv("TMPDIR", folder.c_str(), 1);
    }

    ~TemporaryFolderVariable()
    {
        _before.empty() ? unsetenv("TMPDIR") : setenv("TMPDIR", _before.c_str(), 1);
    }

    TemporaryFolderVariable(const TemporaryFolderVariable&) = delete;
    TemporaryFolderVariable& operator=(const TemporaryFolderVariable&) = delete;

private:
    std::string _before;
};

class EditJournalTest : public testing::Test
{
protected:
    const TempFolder folder;
    const Bytes original = EditedStore::bytes(kPoints);
    const std::string path = folder.write("store.brx", original);
    const std::string journalFile = journalPath(path);
    std::mt19937 random{5};

    Bytes storeBytes() const { return readFile(path); }

    EditedStore::Journal open() const { return EditedStore::open(path); }

    uint64_t hide(const EditedStore::Journal& journal, const std::vector<Change>& changes) const
    {
        uint64_t number = 0;
        const Status status = EditedStore::hide(journal, path, changes, number);
        EXPECT_TRUE(status) << status.message();
        return number;
    }

    uint64_t hideAny(const EditedStore::Journal& journal)
    {
        return hide(journal, randomChanges(random, kPoints, random() % 2));
    }

    Status move(const EditedStore::Journal& journal, uint64_t state) const
    {
        uint64_t points = 0;
        return journal->moveTo(state, "clara", nullptr, points);
    }

    /// Puts files there as a killed program left them.
    void putBack(const Bytes& store, const Bytes& journal) const
    {
        std::filesystem::remove(path); // a file system may sync what is written over
        std::filesystem::remove(journalFile);
        folder.write("store.brx", store);
        folder.write("store.brx.edits", journal);
    }
};

} // namespace

TEST_F(EditJournalTest, LeadsToEveryStateForwardsAndBackwardsAcrossBranchesAndRestarts)
{
    std::map<uint64_t, Bytes> states = {{0, original}};
    EditedStore::Journal journal = open();
    for (int turn = 0; turn < 60; ++turn) {
        if (random() % 4 == 0) {
            journal.reset();
            EXPECT_EQ(verifyEdits(path), std::vector<std::string>());
            journal = open();
        }
        if (random() % 2) {
            const uint64_t number = hideAny(journal);
            states[number] = storeBytes();
        } else {
            const auto state = std::next(states.begin(), static_cast<ptrdiff_t>(random() % states.size()));
            const Status moved = move(journal, state->first);
            ASSERT_TRUE(moved) << moved.message();
            ASSERT_EQ(journal->state(), state->first);
            ASSERT_TRUE(storeBytes() == state->second) << "state " << state->first;
        }
    }
    EXPECT_EQ(verifyEdits(path), std::vector<std::string>()) << "while it is open";
    EXPECT_GT(states.size(), 20u);
}

TEST_F(EditJournalTest, WritesDownWhoDidWhatAndWhatBecameOfIt)
{
    EditedStore::Journal journal = open();
    constexpr int64_t kTime = 1000000; // of the first edit
    uint64_t first = 0;
    ASSERT_TRUE(EditedStore::hide(journal, path, {{7, 4}, {8, 4}}, first, true, kTime));
    const uint64_t second = hide(journal, {{9, 4}});
    ASSERT_TRUE(move(journal, first));
    EditHistory history;
    ASSERT_TRUE(readEditHistory(path, history));
    ASSERT_EQ(history.entries.size(), 3u);
    EXPECT_EQ(history.state, first);
    EXPECT_EQ(history.entries[0].author, "anna");
    EXPECT_EQ(history.entries[0].operation, R"({"op":"cull"})");
    EXPECT_EQ(history.entries[0].points, 2u);
    EXPECT_TRUE(history.entries[0].isDone);
    EXPECT_FALSE(history.entries[1].isDone);
    EXPECT_EQ(history.entries[2].kind, EditEntry::Kind::UNDO);
    EXPECT_EQ(history.entries[2].change, second);
    EXPECT_EQ(history.entries[2].author, "clara");
    EXPECT_TRUE(history.entries[2].isUnfinished) << "the store is not on the disk";
    EXPECT_TRUE(needsRecovery(path));
    EditHistory ofOpen;
    ASSERT_TRUE(journal->readHistory(ofOpen));
    ASSERT_EQ(ofOpen.entries.size(), 3u);
    EXPECT_EQ(ofOpen.entries[2].author, "clara");
    EXPECT_TRUE(ofOpen.entries[0].isDone && !ofOpen.entries[1].isDone);
    EXPECT_EQ(ofOpen.entries[0].time, kTime);
    EXPECT_GT(ofOpen.entries[2].time, kTime);
    journal.reset();
    EXPECT_FALSE(needsRecovery(path));
    ASSERT_TRUE(readEditHistory(path, history));
    EXPECT_FALSE(history.entries[2].isUnfinished);

    std::vector<uint64_t> changes;
    ASSERT_TRUE(effectiveEdits(history, 1, 2, changes));
    EXPECT_EQ(changes, (std::vector<uint64_t>{1, 2}));
    ASSERT_TRUE(effectiveEdits(history, 1, 3, changes));
    EXPECT_EQ(changes, (std::vector<uint64_t>{1}));
    EXPECT_FALSE(effectiveEdits(history, 3, 3, changes)) << "what it takes back is not among them";
    EXPECT_FALSE(effectiveEdits(history, 1, 4, changes));
}

TEST_F(EditJournalTest, AnEditThatWasNotWholeIsGoneWhereverItWasCutAndAWholeOneIsFinishedFromAnyPointOn)
{
    EditedStore::Journal journal = open();
    hideAny(journal);
    journal.reset();
    const Bytes storeBefore = storeBytes();
    const Bytes journalBefore = readFile(journalFile);
    journal = open();
    const std::vector<Change> changes = randomChanges(random, 400, false);
    uint64_t number = 0;
    ASSERT_TRUE(EditedStore::hide(journal, path, changes, number, false));
    const Bytes journalAfter = readFile(journalFile);
    const Bytes storeAfter = hidden(storeBefore, changes);
    journal.reset();

    for (size_t length = journalBefore.size(); length < journalAfter.size(); length += 5) {
        putBack(storeBefore, {journalAfter.begin(), journalAfter.begin() + static_cast<ptrdiff_t>(length)});
        const EditedStore::Journal opened = open();
        ASSERT_TRUE(opened && opened->state() == 1) << length;
        ASSERT_EQ(opened->recovery().cutUnfinished, length > journalBefore.size()) << length;
        ASSERT_TRUE(readFile(journalFile) == journalBefore) << length;
        ASSERT_TRUE(storeBytes() == storeBefore) << length;
    }
    for (size_t done = 0; done <= changes.size(); done += 7) {
        const Bytes half =
            hidden(storeBefore, {changes.begin(), changes.begin() + static_cast<ptrdiff_t>(done)});
        putBack(half, journalAfter);
        EXPECT_EQ(verifyEdits(path), std::vector<std::string>()) << "a half done edit is no damage";
        const EditedStore::Journal opened = open();
        ASSERT_TRUE(opened && opened->state() == number) << done;
        ASSERT_TRUE(storeBytes() == storeAfter) << done;
        uint64_t left = 0;
        for (size_t i = 0; i < half.size(); ++i)
            left += half[i] != storeAfter[i];
        ASSERT_EQ(opened->recovery().pointsFinished, left) << done;
    }
}

TEST_F(EditJournalTest, AnEditWhoseHeadReachedTheDiskBeforeItsPointsIsGone)
{
    hideAny(open());
    const Bytes storeBefore = storeBytes();
    const Bytes journalBefore = readFile(journalFile);
    uint64_t number = 0;
    ASSERT_TRUE(EditedStore::hide(open(), path, randomChanges(random, kPoints, false), number, false));
    const Bytes journalAfter = readFile(journalFile);
    for (const size_t lost : {size_t{128}, size_t{200}, size_t{500}}) {
        Bytes torn(journalAfter.begin(), journalAfter.end() - 128); // without the mark
        std::fill(torn.begin() + static_cast<ptrdiff_t>(journalBefore.size() + lost), torn.end(), uint8_t{0});
        putBack(storeBefore, torn);
        EditHistory history;
        EXPECT_TRUE(readEditHistory(path, history)) << lost;
        const EditedStore::Journal opened = open();
        ASSERT_TRUE(opened && opened->state() == 1) << lost;
        EXPECT_TRUE(storeBytes() == storeBefore) << lost;
        EXPECT_TRUE(readFile(journalFile) == journalBefore) << lost;
    }
}

TEST_F(EditJournalTest, AnUndoThatWasBrokenOffIsFinished)
{
    std::vector<Change> changes = randomChanges(random, kPoints, true);
    EditedStore::Journal journal = open();
    const uint64_t number = hide(journal, changes);
    const Bytes edited = storeBytes();
    ASSERT_TRUE(move(journal, 0));
    const Bytes undone = readFile(journalFile);
    ASSERT_TRUE(move(journal, number));
    const Bytes redone = readFile(journalFile);
    journal.reset();
    changes.resize(changes.size() / 2);
    const Bytes half = hidden(original, changes);
    putBack(half, undone);
    EXPECT_EQ(open()->state(), 0u);
    EXPECT_TRUE(storeBytes() == original);
    putBack(half, redone);
    EXPECT_EQ(open()->state(), number);
    EXPECT_TRUE(storeBytes() == edited);
}

TEST_F(EditJournalTest, ATemporaryOneTakesBackAndSavesWithoutAFileBesideTheStore)
{
    std::filesystem::create_directory(journalFile); // none can be kept there
    const std::string temporary = folder.file("temporary");
    std::filesystem::create_directory(temporary);
    const TemporaryFolderVariable variable(temporary);
    const auto openTemporary = [&](EditedStore::Journal& journal) {
        const JournalledStore store = {path,
                                       std::make_shared<File>(path.c_str()),
                                       EditedStore::kId,
                                       kPoints,
                                       EditedStore::kStart,
                                       JournalPlace::TEMPORARY};
        ASSERT_TRUE(EditJournal::open(store, journal));
    };
    EditedStore::Journal journal;
    openTemporary(journal);
    const uint64_t first = hideAny(journal);
    const Bytes edited = storeBytes();
    hideAny(journal);
    ASSERT_TRUE(move(journal, first));
    EXPECT_TRUE(storeBytes() == edited);
    ASSERT_TRUE(move(journal, 0));
    EXPECT_TRUE(storeBytes() == original);
    ASSERT_TRUE(move(journal, first));
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
    journal.reset();

    std::filesystem::permissions(path, std::filesystem::perms::others_read);
    const bool isRoot = geteuid() == 0; // who may write everything
    std::filesystem::permissions(folder.path(), std::filesystem::perms::others_exec,
                                 std::filesystem::perm_options::add);
    ASSERT_TRUE(!isRoot || seteuid(65534) == 0);
    openTemporary(journal);
    ASSERT_TRUE(!isRoot || seteuid(0) == 0);
    EXPECT_EQ(journal->state(), 0u) << "it begins empty";
    uint64_t number = 0;
    uint64_t points = 0;
    EXPECT_FALSE(EditedStore::hide(journal, path, {{1, 2}}, number));
    ASSERT_TRUE(EditedStore::classify(journal, Bytes(kPoints), {{1, 2}}, number));
    EXPECT_EQ(journal->unsavedPoints(), 1u);
    EXPECT_FALSE(journal->save("", points));
}

TEST_F(EditJournalTest, NothingChangesWhereTheDiskHasNoRoomForTheJournal)
{
    const std::vector<Change> changes = randomChanges(random, kPoints, false);
    uint64_t number = 0;
    for (const uint64_t room : {0, 100}) {
        const NoRoom noRoom(room);
        EXPECT_FALSE(EditedStore::hide(open(), path, changes, number)) << room;
        EXPECT_FALSE(std::filesystem::exists(journalFile)) << room;
    }
    EditedStore::Journal journal = open();
    hide(journal, {{1, 4}});
    const Bytes storeBefore = storeBytes();
    const Bytes journalBefore = readFile(journalFile);
    for (uint64_t room = journalBefore.size(); room < journalBefore.size() + 1500; room += 50) {
        Status status;
        {
            const NoRoom noRoom(room);
            status = EditedStore::hide(journal, path, changes, number);
        }
        ASSERT_FALSE(status) << room;
        ASSERT_NE(status.message().find(journalFile), std::string::npos) << status.message();
        ASSERT_TRUE(storeBytes() == storeBefore) << room;
        ASSERT_TRUE(readFile(journalFile) == journalBefore) << room;
    }
    EXPECT_EQ(hide(journal, changes), 2u);
    EXPECT_TRUE(storeBytes() == hidden(storeBefore, changes));
}

TEST_F(EditJournalTest, AnEditThatTheStoreTakesInPartCanBeUndoneAndIsElseFinishedByTheNext)
{
    appendHole(path); // what is stored into its mapping could find no room
    const JournalledStore store = {path, std::make_shared<File>(path.c_str()), EditedStore::kId, kPoints,
                                   EditedStore::kStart};
    EditedStore::Journal journal;
    ASSERT_TRUE(EditJournal::open(store, journal));
    std::vector<Change> alike;
    for (uint32_t point = 0; point < kPoints; ++point)
        alike.push_back({point, 1});
    hide(journal, alike);
    const Bytes before = storeBytes();
    uint64_t number = 0;
    uint64_t points = 0;
    for (const uint32_t distance : {1, 2}) { // one run, and single points
        std::vector<Change> changes;
        for (uint32_t point = 0; point < kPoints; point += distance)
            changes.push_back({point, 5});
        const auto hideHalf = [&] {
            const Status status = EditedStore::hide(journal, path, changes, number);
            EXPECT_FALSE(status);
            EXPECT_NE(status.message().find("make room"), std::string::npos) << status.message();
            EXPECT_FALSE(storeBytes() == before);
            EXPECT_FALSE(storeBytes() == hidden(before, changes));
        };
        {
            const NoRoom noRoom(70 << 10);
            hideHalf();
            const uint64_t half = number;
            ASSERT_TRUE(journal->findPrevious(half, number));
            const Status undone = move(journal, number);
            EXPECT_TRUE(undone) << undone.message();
            EXPECT_TRUE(storeBytes() == before) << "an undo needs no more room than the edit had";
            hideHalf();
            EXPECT_FALSE(EditedStore::hide(journal, path, {{1, 3}}, points)) << "nothing goes on over it";
        }
        const uint64_t finished = hide(journal, {{1, 3}});
        EXPECT_TRUE(storeBytes() == hidden(hidden(before, changes), {{1, 3}}));
        ASSERT_TRUE(journal->findPrevious(number, number));
        ASSERT_TRUE(move(journal, number));
        EXPECT_TRUE(storeBytes() == before);
        EXPECT_GT(finished, number);
    }
    std::vector<Change> classes;
    Bytes current(kPoints);
    for (uint32_t point = 0; point < kPoints; ++point) {
        current[point] = before[EditedStore::kStart + point * 36 + 16];
        classes.push_back({point, static_cast<uint8_t>(~current[point])});
    }
    ASSERT_TRUE(EditedStore::classify(journal, current, classes, number));
    {
        const NoRoom noRoom(70 << 10);
        EXPECT_FALSE(journal->save("", points));
    }
    ASSERT_TRUE(journal->save("", points));
    const Bytes saved = storeBytes();
    for (uint32_t point = 0; point < kPoints; ++point)
        ASSERT_EQ(saved[EditedStore::kStart + point * 36 + 16], classes[point].value) << point;
}

TEST_F(EditJournalTest, ClassesReachTheStoreWhenTheyAreSavedAndAreThereAgainAfterAKill)
{
    Bytes classes(kPoints);
    const auto classesOf = [&](const Bytes& store) {
        Bytes found(kPoints);
        for (size_t i = 0; i < kPoints; ++i)
            found[i] = store[EditedStore::kStart + i * 36 + 16];
        return found;
    };
    classes = classesOf(original);
    EditedStore::Journal journal = open();
    const auto classify = [&](uint32_t first, uint8_t value) {
        std::vector<Change> changes;
        for (uint32_t point = first; point < first + 1000; ++point)
            if (classes[point] != value) changes.push_back({point, value});
        uint64_t number = 0;
        EXPECT_TRUE(EditedStore::classify(journal, classes, changes, number));
        for (const Change& change : changes)
            classes[change.point] = change.value;
        return number;
    };
    const uint64_t first = classify(0, 6);
    const uint64_t hiding = hide(journal, {{3, 4}});
    const uint64_t second = classify(500, 9);
    EXPECT_EQ(classesOf(storeBytes()), classesOf(original));
    EXPECT_EQ(journal->savedState(), 0u);

    const Bytes killed = readFile(journalFile);
    journal.reset();
    uint64_t forgotten = 0;
    ASSERT_TRUE(forgetEdits(path, INT64_MAX, forgotten));
    EXPECT_EQ(forgotten, 0u) << "what is not saved is kept";
    putBack(original, killed);
    ASSERT_TRUE(forgetEdits(path, INT64_MAX, forgotten));
    EXPECT_EQ(forgotten, 0u) << "and so is what is not finished";
    journal = open();
    EXPECT_GT(journal->unsavedPoints(), 1000u);
    Bytes seen = classesOf(storeBytes());
    ASSERT_TRUE(journal->visitUnsaved([&](const EditedPoints& edited) {
        EXPECT_TRUE(edited.deferred);
        for (uint64_t i = 0; i < edited.count; ++i)
            seen[edited.first + i] = edited.values[i * edited.step];
    }));
    EXPECT_EQ(seen, classes);
    EXPECT_EQ(verifyEdits(path), std::vector<std::string>());

    uint64_t points = 0;
    ASSERT_TRUE(journal->save("", points));
    EXPECT_EQ(classesOf(storeBytes()), classes);
    EXPECT_EQ(journal->unsavedPoints(), 0u);
    const Bytes saved = storeBytes();
    const Bytes journalSaved = readFile(journalFile);
    ASSERT_TRUE(move(journal, hiding)) << "undo goes back past a save";
    EXPECT_TRUE(storeBytes() == saved);
    EXPECT_GT(journal->unsavedPoints(), 0u);
    ASSERT_TRUE(journal->save("", points));
    EXPECT_EQ(verifyEdits(path), std::vector<std::string>());
    ASSERT_TRUE(move(journal, first));
    ASSERT_TRUE(move(journal, second));
    ASSERT_TRUE(journal->save("", points));
    EXPECT_TRUE(storeBytes() == saved);
    journal.reset();

    // A save that was broken off: its mark is missing and the store has a part.
    putBack(hidden(original, {{3, 4}}), {journalSaved.begin(), journalSaved.end() - 128});
    journal = open();
    EXPECT_TRUE(storeBytes() == saved);
    EXPECT_EQ(journal->unsavedPoints(), 0u);
}

TEST_F(EditJournalTest, RefusesToUndoWhatSomebodyElseChangedAndNamesTheCell)
{
    EditedStore::Journal journal = open();
    hide(journal, {{10, 4}, {11, 4}, {12, 4}});
    hide(journal, {{20, 4}});
    Bytes foreign = storeBytes();
    foreign[EditedStore::kStart + 11 * 36 + 15] ^= 0x05;
    journal.reset();
    folder.write("store.brx", foreign);
    const std::vector<std::string> problems = verifyEdits(path);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0], "edit 1: 1 of its points are not as the journal says, the first is point 11");
    journal = open();
    const Status status = move(journal, 0);
    EXPECT_NE(status.message().find("point 11 of cell 00-0000000000000000"), std::string::npos)
        << status.message();
    EXPECT_EQ(journal->state(), 1u) << "the newer edit is undone";
    EXPECT_EQ(storeBytes()[EditedStore::kStart + 11 * 36 + 15], foreign[EditedStore::kStart + 11 * 36 + 15]);
}

TEST_F(EditJournalTest, IsRefusedBesideAnotherStoreAndWhileSomebodyElseEdits)
{
    hideAny(open());
    const Bytes journalBytes = readFile(journalFile);
    const std::string other = folder.write("other.brx", EditedStore::bytes(kPoints - 1));
    std::filesystem::copy_file(journalFile, journalPath(other));
    const std::string third = folder.write("third.brx", original);
    EditedStore::Journal journal = EditedStore::open(third); // ends with the next one
    const Status status = EditJournal::open(other, journal);
    EXPECT_NE(status.message().find("is the journal of another store"), std::string::npos)
        << status.message();
    EXPECT_FALSE(verifyEdits(other).empty());
    EXPECT_FALSE(journal);

    folder.write("other.brx", original);
    Bytes ofOther = journalBytes;
    ofOther.resize(128);
    storeLe<uint64_t>(&ofOther[16], EditedStore::kId + 1);
    storeLe(&ofOther[12], crc32c(&ofOther[16], 112));
    folder.write("other.brx.edits", ofOther);
    EXPECT_FALSE(EditJournal::open(other, journal)) << "as many points, another id";

    const int descriptor = ::open(journalFile.c_str(), O_RDONLY | O_CLOEXEC);
    flock(descriptor, LOCK_EX); // as whoever edits all the same
    EXPECT_EQ(EditJournal::open(path, journal).kind(), Status::Kind::IN_USE);
    close(descriptor);
    OtherEditor editor(path);
    ASSERT_TRUE(editor.edits());
    EXPECT_EQ(EditJournal::open(path, journal).kind(), Status::Kind::IN_USE);
    uint64_t forgotten = 0;
    EXPECT_EQ(forgetEdits(path, INT64_MAX, forgotten).kind(), Status::Kind::IN_USE);
    EXPECT_EQ(readFile(journalFile), journalBytes);
}

TEST_F(EditJournalTest, IsOneForAllWhoOpenTheFile)
{
    const EditedStore::Journal one = open();
    std::filesystem::create_symlink(path, folder.file("link.brx"));
    EXPECT_EQ(EditedStore::open(folder.file("link.brx")), one);
    hideAny(one);
    std::filesystem::rename(journalFile, folder.file("moved"));
    uint64_t number = 0;
    const Bytes before = storeBytes();
    EXPECT_FALSE(EditedStore::hide(one, path, {{1, 2}}, number)) << "it would be written nowhere";
    EXPECT_TRUE(storeBytes() == before);
}

TEST_F(EditJournalTest, BringsTheStoreToTheDiskNowAndThenSoThatARecoveryIsShort)
{
    const EditedStore::Journal journal = open();
    for (uint32_t i = 0; i < 70; ++i)
        hide(journal, {{i, static_cast<uint8_t>(i % 4)}});
    EditHistory history;
    ASSERT_TRUE(readEditHistory(path, history));
    EXPECT_FALSE(history.entries[50].isUnfinished);
    EXPECT_TRUE(history.entries[69].isUnfinished);
}

TEST_F(EditJournalTest, ForgetsOldEditsAndKeepsWhatTheOthersNeed)
{
    EditedStore::Journal journal = open();
    std::vector<Bytes> states = {original};
    for (int i = 0; i < 4; ++i) {
        hideAny(journal);
        states.push_back(storeBytes());
    }
    ASSERT_TRUE(move(journal, 3)); // entry 5
    hideAny(journal);              // change 6 on 3
    const Bytes last = storeBytes();
    EditHistory history;
    ASSERT_TRUE(readEditHistory(path, history));
    const int64_t time = history.entries[4].time; // of the undo, which needs change 4
    const Bytes killed = readFile(journalFile);
    journal.reset();
    const Bytes closed = readFile(journalFile);
    uint64_t forgotten = 0;
    putBack(last, killed);
    ASSERT_TRUE(forgetEdits(path, time, forgotten));
    EXPECT_EQ(forgotten, 0u) << "none is finished";
    putBack(last, closed);
    const Status status = forgetEdits(path, time, forgotten);
    ASSERT_TRUE(status) << status.message();
    EXPECT_EQ(forgotten, 3u);
    ASSERT_TRUE(readEditHistory(path, history));
    ASSERT_EQ(history.entries.size(), 3u);
    EXPECT_EQ(history.entries[0].number, 4u);
    EXPECT_EQ(verifyEdits(path), std::vector<std::string>());
    journal = open();
    EXPECT_FALSE(move(journal, 1));
    for (const uint64_t state : {3, 4, 6, 3, 6}) {
        ASSERT_TRUE(move(journal, state));
        EXPECT_TRUE(storeBytes() == (state == 6 ? last : states[state])) << state;
    }
    EXPECT_EQ(hideAny(journal), 13u) << "numbers go on: 3 forgotten, 3 kept, 6 undone or redone";
    journal.reset();
    ASSERT_TRUE(forgetEdits(path, INT64_MAX, forgotten));
    EXPECT_EQ(forgotten, 10u);
    EXPECT_EQ(std::filesystem::file_size(journalFile), 128u);
    EXPECT_EQ(verifyEdits(path), std::vector<std::string>());
    EXPECT_EQ(hideAny(open()), 14u);
}
