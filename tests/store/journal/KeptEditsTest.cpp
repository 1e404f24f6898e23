// Stores that are built anew from changed files, and keep their edits.

#include "store/io/ByteIo.h"
#include "store/journal/PointMatch.h"
#include "tests/support/EditedStore.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <VelBrx/Builder.h>
#include <VelBrx/EditHistory.h>

#include <gtest/gtest.h>

#include <map>
#include <random>

#include <sys/wait.h>
#include <unistd.h>

using namespace VelBrx;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr int kPoints = 4000;

struct Survey
{
    std::array<double, 3> scale = {0.01, 0.01, 0.01};
    std::array<double, 3> offset = {0, 0, 0};
    bool (*has)(int) = [](int) { return true; };
    int otherClass = 0;   ///< each n-th point has class 5
    double firstTime = 1; ///< the GPS time of a point is one more than the one before
};

/// Points that lie in pairs in one place, each with a GPS time of its own.
Bytes surveyBytes(const Survey& survey)
{
    TestLas las;
    las.scale = survey.scale;
    las.offset = survey.offset;
    std::mt19937 random(3);
    std::array<double, 3> place{};
    for (int i = 0; i < kPoints; ++i) {
        for (double& coordinate : place)
            if (i % 2 == 0) coordinate = 0.01 * static_cast<double>(random() % 100000);
        if (!survey.has(i)) continue;
        std::array<int32_t, 3> steps{};
        for (size_t axis = 0; axis < 3; ++axis)
            steps[axis] =
                static_cast<int32_t>(std::lround((place[axis] - survey.offset[axis]) / survey.scale[axis]));
        Bytes& record = las.addPoint(steps[0], steps[1], steps[2]);
        record[14] = 0x11;
        record[16] = survey.otherClass && i % survey.otherClass == 0 ? 5 : 2;
        storeLe(&record[22], survey.firstTime + i);
    }
    return las.bytes();
}

/// The hidden bits and classes of the points of a store by their GPS times.
std::map<double, std::pair<int, int>> pointsOf(const std::string& store)
{
    const Bytes bytes = readFile(store);
    std::map<double, std::pair<int, int>> points;
    const uint64_t count = loadLe<uint64_t>(&bytes[247]);
    for (uint64_t i = 0; i < count; ++i) {
        const uint8_t* const record = &bytes[EditedStore::kStart + i * 36];
        points[loadLe<double>(record + 22)] = {record[15] & 0x0F, record[16]};
    }
    return points;
}

class EditsOfARebuiltStore : public testing::Test
{
protected:
    EditsOfARebuiltStore()
    {
        folder.write("old.las", surveyBytes({}));
        EXPECT_TRUE(build({"old.las"}, false));
        const Bytes bytes = readFile(store);
        EXPECT_EQ(loadLe<uint32_t>(&bytes[96]), EditedStore::kStart);
        for (uint64_t i = 0; i < kPoints; ++i)
            times.push_back(loadLe<double>(&bytes[EditedStore::kStart + i * 36 + 22]));
    }

    const TempFolder folder;
    const std::string store = folder.file("store.brx");
    std::vector<double> times; ///< of the old store's points
    BuildReport report;

    Status build(const std::vector<std::string>& files, bool keepEdits = true)
    {
        BuildOptions options;
        for (const std::string& file : files)
            options.inputs.push_back(folder.file(file));
        options.output = store;
        options.overwrite = options.keepEdits = keepEdits;
        return buildStore(options, report);
    }

    /// The points whose numbers in the survey leave `rest` when divided by `divisor`, up to `end`.
    std::vector<EditedStore::Change> every(int divisor, int rest, uint8_t value, int end = kPoints) const
    {
        std::vector<EditedStore::Change> changes;
        for (uint64_t point = 0; point < times.size(); ++point)
            if (const int number = static_cast<int>(times[point]) - 1;
                number % divisor == rest && number < end)
                changes.push_back({point, value});
        return changes;
    }

    void hide(const EditedStore::Journal& journal, const std::vector<EditedStore::Change>& changes) const
    {
        uint64_t number = 0;
        EXPECT_TRUE(EditedStore::hide(journal, store, changes, number));
    }

    void move(const EditedStore::Journal& journal, uint64_t state) const
    {
        uint64_t points = 0;
        const Status moved = journal->moveTo(state, "clara", nullptr, points);
        EXPECT_TRUE(moved) << moved.message();
    }

    /// Classes of the points with what is not saved.
    Bytes classes(const EditedStore::Journal& journal) const
    {
        const Bytes bytes = readFile(store);
        Bytes found(times.size());
        for (size_t i = 0; i < found.size(); ++i)
            found[i] = bytes[EditedStore::kStart + i * 36 + 16];
        EXPECT_TRUE(journal->visitUnsaved([&](const EditedPoints& edited) {
            for (uint64_t i = 0; i < edited.count; ++i)
                found[edited.first + i] = edited.values[i * edited.step];
        }));
        return found;
    }

    void classify(const EditedStore::Journal& journal, const std::vector<EditedStore::Change>& changes) const
    {
        uint64_t number = 0;
        EXPECT_TRUE(EditedStore::classify(journal, classes(journal), changes, number));
    }

    /// What the store shows in a state, classes saved.
    std::map<double, std::pair<int, int>> shownBehind(uint64_t entry) const
    {
        const EditedStore::Journal journal = EditedStore::open(store);
        uint64_t state = 0;
        uint64_t points = 0;
        const Status found = journal->findState(entry, state);
        EXPECT_TRUE(found) << found.message();
        move(journal, state);
        EXPECT_TRUE(journal->save("", points));
        return pointsOf(store);
    }

    void editInManyWays() const
    {
        {
            Bytes bytes = readFile(store); // edits that no journal has
            for (const EditedStore::Change& change : every(50, 3, 4))
                bytes[EditedStore::kStart + change.point * 36 + 15] |= 4;
            folder.write("store.brx", bytes);
        }
        const EditedStore::Journal journal = EditedStore::open(store);
        uint64_t points = 0;
        hide(journal, every(3, 0, 4));               // 1
        hide(journal, every(7, 0, 2, 1));            // 2: a point that the new store lacks
        move(journal, 1);                            // 3: undo
        classify(journal, every(4, 1, 6));           // 4
        ASSERT_TRUE(journal->save("bernd", points)); // 5
        hide(journal, every(3, 0, 0, 2000));         // 6
        move(journal, 4);                            // 7: undo
        hide(journal, every(5, 2, 1));               // 8: a branch
        classify(journal, every(8, 5, 9));           // 9, not saved
        move(journal, 8);                            // 10: undo
        move(journal, 9);                            // 11: redo
    }
};

} // namespace

TEST_F(EditsOfARebuiltStore, AreThereAgainInEveryStateByPlaceWhateverElseChanged)
{
    editInManyWays();
    EditHistory before;
    ASSERT_TRUE(readEditHistory(store, before));
    Survey later; // files of another grid, without some points and with others in the same places
    later.offset = {5, -3, 0.5};
    later.has = [](int number) { return number % 7 != 0; };
    later.otherClass = 13;
    Survey more;
    more.scale = {0.001, 0.001, 0.001};
    more.has = [](int number) { return number % 14 >= 2 && number % 14 < 6; };
    more.firstTime = 100001;
    folder.write("later.las", surveyBytes(later));
    folder.write("more.las", surveyBytes(more));
    std::filesystem::copy_file(store, folder.file("kept.brx"));
    std::filesystem::copy_file(journalPath(store), folder.file("kept.edits"));

    const Status built = build({"more.las", "later.las"});
    ASSERT_TRUE(built) << built.message();
    EXPECT_FALSE(std::filesystem::exists(folder.file("store.brx.new.edits")));
    EXPECT_EQ(report.kept.edits, 6u) << "that of no journal, and five of six";
    EXPECT_EQ(report.kept.lostEdits, 1u);
    uint64_t lost = 0;
    for (int number = 0; number < kPoints; number += 7)
        lost += number == 0 || number % 3 == 0 || number % 4 == 1 || number % 5 == 2 || number % 50 == 3;
    EXPECT_EQ(report.kept.lostPoints, lost);
    ASSERT_EQ(report.notes.size(), 1u);
    EXPECT_NE(report.notes[0].find(" edited points are not in the new store, and none of 1 edits"),
              std::string::npos)
        << report.notes[0];
    EXPECT_EQ(verifyEdits(store), std::vector<std::string>());
    EditHistory after;
    ASSERT_TRUE(readEditHistory(store, after));
    ASSERT_EQ(after.entries.size() + 1, before.entries.size()) << "one more, and two less";
    for (size_t i = 0; i < after.entries.size(); ++i) {
        const EditEntry& ours = after.entries[i];
        const EditEntry& theirs = before.entries[i == 1 ? 0 : i + 1];
        EXPECT_FALSE(ours.isUnfinished) << i;
        if (i == 0) continue;
        EXPECT_EQ(ours.time, theirs.time) << i;
        EXPECT_EQ(ours.author, theirs.author) << i;
        EXPECT_EQ(ours.operation, theirs.operation) << i;
        EXPECT_EQ(ours.kind, theirs.kind) << i;
        EXPECT_EQ(ours.isDone, theirs.isDone) << i;
        EXPECT_EQ(ours.isUnsaved, theirs.isUnsaved) << i;
    }

    std::vector<std::map<double, std::pair<int, int>>> states;
    std::vector<std::map<double, std::pair<int, int>>> others;
    for (uint64_t entry = 1; entry <= 10; ++entry)
        states.push_back(shownBehind(entry));
    std::filesystem::rename(folder.file("kept.brx"), store);
    std::filesystem::rename(folder.file("kept.edits"), journalPath(store));
    for (const uint64_t entry : {0, 1, 4, 5, 6, 7, 8, 9, 10, 11})
        others.push_back(shownBehind(entry));
    for (size_t state = 0; state < states.size(); ++state)
        for (const auto& [time, shown] : states[state]) {
            const int number = static_cast<int>(time) - 1;
            if (number >= kPoints) {
                ASSERT_EQ(shown, (std::pair(0, 2))) << "of the other file, at state " << state;
                continue;
            }
            auto expected = others[state].at(time);
            if (number % 13 == 0 && expected.second == 2) expected.second = 5;
            ASSERT_EQ(shown, expected) << "point " << number << ", state " << state;
        }
}

TEST_F(EditsOfARebuiltStore, FindTheirJournalWhereABuildWasKilledBeforeItHadItsName)
{
    editInManyWays();
    const Bytes oldJournal = readFile(journalPath(store));
    ASSERT_TRUE(build({"old.las"}));
    EXPECT_EQ(report.kept.lostPoints, 0u);
    EXPECT_EQ(report.kept.edits, 7u);
    const Bytes newJournal = readFile(journalPath(store));
    const auto putBack = [&] {
        folder.write("store.brx.edits", oldJournal);
        folder.write("store.brx.new.edits", newJournal);
    };
    EditHistory history;
    putBack();
    ASSERT_TRUE(readEditHistory(store, history));
    EXPECT_EQ(history.entries.size(), 12u);
    EXPECT_EQ(verifyEdits(store), std::vector<std::string>());
    EXPECT_TRUE(readFile(journalPath(store)) == oldJournal) << "who reads changes nothing";
    EXPECT_TRUE(EditedStore::open(store));
    EXPECT_TRUE(readFile(journalPath(store)) == newJournal);
    EXPECT_FALSE(std::filesystem::exists(folder.file("store.brx.new.edits")));
    putBack();
    ASSERT_TRUE(build({"old.las"})) << "the edits are kept once more";
    EXPECT_EQ(report.kept.edits, 7u);
    folder.write("store.brx.new.edits", oldJournal); // of a build that was killed earlier
    EXPECT_TRUE(EditedStore::open(store));
    EXPECT_EQ(verifyEdits(store), std::vector<std::string>());
}

TEST_F(EditsOfARebuiltStore, AreWithTheOldStoreOrTheNewOneWhereverABuildIsKilled)
{
    editInManyWays();
    const auto shown = shownBehind(11);
    const auto whole = std::chrono::steady_clock::now();
    ASSERT_TRUE(build({"old.las"}));
    const auto length =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - whole)
            .count();
    std::mt19937 random(4);
    int ended = 0;
    for (int turn = 0; turn < 25; ++turn) {
        const pid_t child = fork();
        if (child == 0) _exit(build({"old.las"}) ? 0 : 1);
        usleep(static_cast<useconds_t>(random() % static_cast<unsigned>(length)));
        kill(child, SIGKILL);
        int how = 0;
        waitpid(child, &how, 0);
        ASSERT_TRUE(WIFSIGNALED(how) || WEXITSTATUS(how) == 0);
        ended += WIFEXITED(how);
        ASSERT_EQ(verifyEdits(store), std::vector<std::string>()) << turn;
        EditHistory history;
        ASSERT_TRUE(readEditHistory(store, history));
        ASSERT_EQ(history.entries.size(), 13u) << turn;
        ASSERT_TRUE(pointsOf(store) == shown) << turn;
    }
    EXPECT_LT(ended, 25);
    ASSERT_TRUE(build({"old.las"}));
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        files += entry.is_regular_file();
    EXPECT_EQ(files, 3u) << "survey, store and journal";
}

TEST_F(EditsOfARebuiltStore, StayWhereTheNewStoreCannotBeBuilt)
{
    editInManyWays();
    const Bytes storeBytes = readFile(store);
    const Bytes journalBytes = readFile(journalPath(store));
    EXPECT_FALSE(build({"none.las"}));
    EXPECT_FALSE(build({"old.las"}, false));
    {
        Bytes foreign = journalBytes;
        foreign[16] ^= 1;
        folder.write("store.brx.edits", foreign);
        EXPECT_FALSE(build({"old.las"}));
        EXPECT_TRUE(readFile(journalPath(store)) == foreign);
    }
    folder.write("store.brx.edits", journalBytes);
    EXPECT_TRUE(readFile(store) == storeBytes);
    EXPECT_FALSE(std::filesystem::exists(folder.file("store.brx.new.edits")));
    EXPECT_EQ(verifyEdits(store), std::vector<std::string>());
}

TEST(PointMatch, FindsPointsToHalfAStepOfTheCoarserGridInAnyMemory)
{
    std::mt19937 random(8);
    Bytes ours(kPoints * 36);
    for (uint8_t& byte : ours)
        byte = static_cast<uint8_t>(random() % 5);
    Bytes theirs;
    std::vector<uint64_t> partners(kPoints, Journal::PointMatch::kNone);
    for (uint64_t point = 0; point < kPoints; ++point) {
        const auto record = ours.begin() + static_cast<ptrdiff_t>(point * 36);
        const size_t copy = theirs.size();
        const bool isThere = random() % 3 > 0;
        if (isThere) theirs.insert(theirs.end(), record, record + 36);
        if (isThere) partners[point] = copy / 36;
        for (size_t axis = 0; axis < 3; ++axis) { // many in one place
            const auto step = static_cast<int32_t>(random() % 5);
            storeLe(&ours[point * 36 + axis * 4], step);
            if (isThere)
                storeLe(&theirs[copy + axis * 4],
                        step * 100 - 3000 + static_cast<int32_t>(random() % 99) - 49);
        }
    }
    const Journal::MatchedStore from = {ours.data(), kPoints, {0.5, 0.5, 0.5}, {1e6, 0, -7}};
    const Journal::MatchedStore to = {
        theirs.data(), theirs.size() / 36, {0.005, 0.005, 0.005}, {1e6 + 15, 15, 8}};
    const TempFolder folder;
    for (const uint64_t memory : {uint64_t{1} << 30, uint64_t{2000}}) {
        Journal::PointMatch match(from, to);
        for (uint64_t point = 3; point < kPoints; point += 1 + point % 3)
            match.ask(point, 1);
        ParallelRun run(2, nullptr, nullptr);
        ASSERT_TRUE(match.run(folder.path(), memory, run));
        for (uint64_t point = 3; point < kPoints; point += 1 + point % 3)
            ASSERT_EQ(match.partner(point), partners[point]) << point;
    }
}
