#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"
#include "store/journal/ChangeRuns.h"
#include "tests/support/EditedStore.h"
#include "tests/support/JournalBytes.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/EditHistory.h>

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include <sys/mman.h>

using namespace VelBrx;
using namespace JournalBytes;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr uint32_t kPoints = 200;

/// A store with hidden points and classes, some undone, and its journal.
class DamagedJournal : public testing::Test
{
protected:
    DamagedJournal()
    {
        EditedStore::Journal journal = EditedStore::open(path);
        std::vector<EditedStore::Change> changes;
        for (uint32_t point = 0; point < kPoints; point += 1 + point % 5)
            changes.push_back({point, static_cast<uint8_t>(point % 11)});
        uint64_t number = 0;
        uint64_t points = 0;
        EXPECT_TRUE(EditedStore::hide(journal, path, changes, number));
        states = {original, readFile(path)};
        Bytes classes(kPoints);
        for (size_t i = 0; i < kPoints; ++i)
            classes[i] = original[EditedStore::kStart + i * 36 + 16];
        EXPECT_TRUE(EditedStore::classify(journal, classes, {{5, 77}, {6, 77}, {9, 3}}, number));
        EXPECT_TRUE(journal->save("", points));
        states.push_back(readFile(path));
        EXPECT_TRUE(EditedStore::hide(journal, path, {{1, 9}, {2, 9}}, number));
        EXPECT_TRUE(journal->moveTo(2, "", nullptr, points));
        journal.reset();
        journalBytes = readFile(journalPath(path));
    }

    const TempFolder folder;
    const Bytes original = EditedStore::bytes(kPoints);
    const std::string path = folder.write("store.brx", original);
    std::vector<Bytes> states; ///< that the store may be left in on the way back
    Bytes journalBytes;

    /// Puts the store there as it was edited, with this journal. Whether that is found to be sound.
    bool isSound(const Bytes& journal) const
    {
        std::filesystem::remove(path); // a file system may sync what is written over
        std::filesystem::remove(journalPath(path));
        folder.write("store.brx", states.back());
        folder.write("store.brx.edits", journal);
        EditHistory history;
        std::vector<uint64_t> changes;
        if (readEditHistory(path, history))
            for (const EditEntry& entry : history.entries)
                if (entry.kind == EditEntry::Kind::CHANGE) changes.push_back(entry.number);
        (void)visitChanges(path, changes, [](uint64_t, uint64_t first, uint64_t count) {
            EXPECT_TRUE(first < kPoints && count <= kPoints - first);
        });
        return verifyEdits(path).empty();
    }

    /// Takes all edits back; false where that was refused.
    bool undoAll() const
    {
        EditedStore::Journal opened;
        uint64_t points = 0;
        return EditJournal::open(path, opened) && opened->moveTo(0, "", nullptr, points) &&
               opened->save("", points);
    }
};

} // namespace

TEST_F(DamagedJournal, IsFoundDamagedAndNeverLeadsToAWrongStoreWhateverByteIsWrong)
{
    ASSERT_TRUE(isSound(journalBytes));
    ASSERT_TRUE(undoAll());
    ASSERT_EQ(readFile(path), original);
    std::mt19937 random(1);
    uint64_t entry = 0;
    uint64_t used = kUnit;
    for (size_t position = 0; position < journalBytes.size(); ++position) {
        if (position % kUnit == 0 && position >= used) {
            entry = position;
            used = entry + lengthOfEntry(&journalBytes[entry]);
        }
        Bytes flipped = journalBytes;
        flipped[position] ^= static_cast<uint8_t>(1u << random() % 8);
        ASSERT_EQ(isSound(flipped), position >= used) << position;
        if (position % 23) continue; // each takes some syncs of the disk
        const bool isUndone = undoAll();
        const Bytes store = readFile(path);
        ASSERT_TRUE(!isUndone || store == original) << position;
        ASSERT_TRUE(std::find(states.begin(), states.end(), store) != states.end()) << position;
    }
}

TEST_F(DamagedJournal, ChangesNothingButFlagsAndClassesHoweverHostileItIs)
{
    std::mt19937 random(7);
    const uint8_t telling[] = {0, 1, 2, 3, 4, 5, 15, 16, 0x7F, 0x80, 0xFF};
    for (int turn = 0; turn < 150; ++turn) {
        Bytes hostile = journalBytes;
        for (unsigned i = 0; i < 1 + random() % 3; ++i)
            hostile[random() % hostile.size()] =
                random() % 2 ? telling[random() % sizeof telling] : static_cast<uint8_t>(random());
        fitChecksums(hostile);
        if (turn % 3 == 0) hostile.resize(hostile.size() - kUnit); // no mark: something is to be finished
        (void)isSound(hostile);
        uint64_t forgotten = 0;
        if (turn % 4 == 0) (void)forgetEdits(path, static_cast<int64_t>(random()), forgotten);
        if (turn % 8 == 0) (void)forgetEdits(path, INT64_MAX, forgotten);
        (void)undoAll();
        Bytes store = readFile(path);
        ASSERT_EQ(store.size(), original.size());
        for (size_t i = 0; i < kPoints; ++i) {
            uint8_t* const record = &store[EditedStore::kStart + i * 36];
            const uint8_t* const before = &original[EditedStore::kStart + i * 36];
            ASSERT_EQ(record[15] & 0xF0, before[15] & 0xF0) << turn;
            record[15] = before[15];
            record[16] = before[16];
        }
        ASSERT_TRUE(store == original) << turn;
    }
}

TEST_F(DamagedJournal, IsRefusedWithAnEntryThatCannotBe)
{
    const size_t second = kUnit + (lengthOfEntry(&journalBytes[kUnit]) + kUnit - 1) / kUnit * kUnit;
    const size_t undo = journalBytes.size() - 3 * kUnit; // then its author, then the mark
    ASSERT_EQ(journalBytes[undo + 24], 2);
    const auto put = [](size_t place, uint8_t value) { return [=](Bytes& bytes) { bytes[place] = value; }; };
    const std::pair<const char*, std::function<void(Bytes&)>> wrongs[] = {
        {"another version", put(8, 2)},
        {"a state behind those forgotten", put(40, 1)},
        {"a number left out", put(second + 8, 3)},
        {"a change on another state", put(second + 56, 0)},
        {"a change of coordinates", put(kUnit + 25, 3)},
        {"a change of the scanner channel", put(kUnit + 26, 0x1F)},
        {"more points than the store", put(kUnit + 49, 1)},
        {"an undo of what is no change", put(undo + 56, 3)},
        {"a redo of what is done", put(undo + 24, 3)},
        {"an unknown kind", put(undo + 24, 6)},
        {"a mark of a later entry", put(journalBytes.size() - kUnit + 8, 9)},
        {"a lost head", [&](Bytes& bytes) {
             std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(second), kUnit, uint8_t{0});
         }}};
    for (const auto& [name, plant] : wrongs) {
        Bytes bytes = journalBytes;
        plant(bytes);
        if (bytes[second] != 0) fitChecksums(bytes);
        (void)isSound(bytes);
        EXPECT_FALSE(undoAll()) << name;
        EXPECT_TRUE(readFile(path) == states.back()) << name;
        EXPECT_EQ(readFile(journalPath(path)).size(), bytes.size()) << name;
    }
}

TEST(HostileRuns, NeverLeadOutOfTheStoreNorToOtherBits)
{
    constexpr uint8_t kMask = 0x0F;
    std::mt19937 random(11);
    Journal::RunEncoder encoder(1);
    for (uint64_t point = 0; point < kPoints; point += 1 + random() % 9)
        for (const uint64_t end = point + random() % 7; point < end && point < kPoints; ++point)
            encoder.add(point, 1, random() % 3 & kMask, 4);
    const Bytes block = encoder.finishBlock();
    Journal::EntryHead head;
    head.number = 1;
    head.mask = kMask;
    head.points = encoder.points();
    const TempFolder folder;
    size_t refused = 0;
    for (int turn = 0; turn < 20000; ++turn) {
        Bytes hostile = block;
        for (unsigned i = 0; i < 1 + random() % 2; ++i)
            hostile[8 + random() % (hostile.size() - 8)] =
                static_cast<uint8_t>(random() % 2 ? random() : random() % 8);
        storeLe(&hostile[4], crc32c(&hostile[8], hostile.size() - 8));
        if (turn % 2) hostile.insert(hostile.end(), hostile.begin(), hostile.end());
        head.runsLength = hostile.size();
        hostile.insert(hostile.begin(), kUnit, uint8_t{0});
        const int descriptor = memfd_create("runs", MFD_CLOEXEC);
        DiskFile file;
        file.take(descriptor, "runs");
        ASSERT_TRUE(file.write(0, hostile.data(), hostile.size()));
        uint64_t points = 0;
        const auto visit = [&](const std::vector<Journal::ChangeRun>& runs) {
            for (const Journal::ChangeRun& run : runs) {
                EXPECT_TRUE(run.count <= kPoints && run.first <= kPoints - run.count) << turn;
                for (uint64_t i = 0; i < run.count && run.count <= kPoints; ++i)
                    EXPECT_EQ((run.before[i * run.beforeStep] | run.after[i * run.afterStep]) & ~kMask, 0);
                points += run.count;
            }
            return Status();
        };
        refused += !Journal::readRuns(file, head, 0, kPoints, visit);
        ASSERT_LE(points, head.points) << turn;
    }
    EXPECT_GT(refused, 15000u);

    Bytes ofOther = block; // as an older entry left it where this one was cut
    ofOther[8] = 2;
    storeLe(&ofOther[4], crc32c(&ofOther[8], ofOther.size() - 8));
    const int descriptor = memfd_create("runs", MFD_CLOEXEC);
    DiskFile file;
    file.take(descriptor, "runs");
    ASSERT_TRUE(file.write(kUnit, ofOther.data(), ofOther.size()));
    head.runsLength = ofOther.size();
    const auto ignore = [](const std::vector<Journal::ChangeRun>&) { return Status(); };
    EXPECT_FALSE(Journal::readRuns(file, head, 0, kPoints, ignore));
    ASSERT_TRUE(file.write(kUnit, block.data(), block.size()));
    EXPECT_TRUE(Journal::readRuns(file, head, 0, kPoints, ignore));
}
