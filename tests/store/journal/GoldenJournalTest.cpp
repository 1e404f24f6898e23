#include "store/journal/ChangeRuns.h"
#include "store/journal/JournalFormat.h"
#include "tests/support/EditedStore.h"
#include "tests/support/ReadFile.h"
#include "tests/support/StatedBytes.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/EditHistory.h>

#include <gtest/gtest.h>

using namespace VelBrx;
using Bytes = std::vector<uint8_t>;

namespace {

class GoldenJournal : public testing::Test
{
protected:
    const TempFolder folder;
    const Bytes storeBytes = statedBytes(VELBRX_GOLDEN_STORE);
    const Bytes journalBytes = statedBytes(VELBRX_GOLDEN_JOURNAL);
    const std::string store = folder.write("golden.brx", storeBytes);
    const std::string journal = folder.write("golden.brx.edits", journalBytes);

    /// Flags and classes of the four points.
    Bytes flagsAndClasses() const
    {
        const Bytes bytes = readFile(store);
        Bytes found;
        for (size_t byte : {15, 16})
            for (size_t point = 0; point < 4; ++point)
                found.push_back(bytes[375 + point * 36 + byte]);
        return found;
    }

    Journal::Unit unitAt(size_t position) const
    {
        Journal::Unit unit;
        std::copy_n(journalBytes.begin() + static_cast<ptrdiff_t>(position), unit.size(), unit.begin());
        return unit;
    }
};

} // namespace

TEST_F(GoldenJournal, HasTheEntriesThatItsBytesState)
{
    EditHistory history;
    const Status read = readEditHistory(store, history);
    ASSERT_TRUE(read) << read.message();
    ASSERT_EQ(history.entries.size(), 5u);
    EXPECT_EQ(history.unfinishedBytes, 0u);
    const EditEntry& second = history.entries[1];
    EXPECT_EQ(second.number, 2u);
    EXPECT_EQ(second.time, 1767323047678901);
    EXPECT_EQ(second.author, "bernd");
    EXPECT_EQ(second.operation, R"({"op":"classify"})");
    EXPECT_EQ(second.points, 4u);
    EXPECT_TRUE(second.isDone);
    EXPECT_FALSE(second.isUnsaved);
    EXPECT_FALSE(history.entries[4].isUnfinished);
    using Kind = EditEntry::Kind;
    const Kind kinds[] = {Kind::CHANGE, Kind::CHANGE, Kind::UNDO, Kind::REDO, Kind::SAVE};
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(history.entries[i].kind, kinds[i]) << i;
    EXPECT_EQ(history.entries[3].change, 2u);
}

TEST_F(GoldenJournal, LeadsItsStoreToTheBytesThatItStatesAndBack)
{
    EXPECT_EQ(verifyEdits(store).size(), 2u) << "the store has none of the edits, though the mark says so";
    folder.write("golden.brx.edits", {journalBytes.begin(), journalBytes.end() - 128}); // without the mark
    EXPECT_EQ(verifyEdits(store), std::vector<std::string>());
    const EditedStore::Journal opened = EditedStore::open(store);
    EXPECT_EQ(flagsAndClasses(), (Bytes{0x04, 0x04, 0x04, 0xB4, 9, 9, 7, 8}));
    uint64_t points = 0;
    ASSERT_TRUE(opened->moveTo(0, "", nullptr, points));
    ASSERT_TRUE(opened->save("", points));
    EXPECT_EQ(readFile(store), storeBytes);
}

TEST_F(GoldenJournal, HasTheBytesThatTheEncoderWrites)
{
    Journal::FileHeader header;
    ASSERT_TRUE(decodeHeader(unitAt(0), header));
    EXPECT_EQ(encodeHeader(header), unitAt(0));
    for (size_t position = 128; position < journalBytes.size();) {
        Journal::EntryHead head;
        ASSERT_TRUE(decodeHead(unitAt(position), head)) << position;
        EXPECT_EQ(encodeHead(head), unitAt(position)) << position;
        position += head.size();
    }
    Journal::RunEncoder hiding(1);
    for (const uint64_t point : {0, 1, 3})
        hiding.add(point, 1, 0, 4);
    const auto runs = [&](size_t start, size_t length) {
        return Bytes(&journalBytes[start], &journalBytes[start] + length);
    };
    EXPECT_EQ(hiding.finishBlock(), runs(128 + 128 + 17, 38));
    Journal::RunEncoder classes(2);
    classes.add(2, 1, 5, 7);
    classes.add(3, 1, 6, 8);
    classes.add(0, 1, 2, 9);
    classes.add(1, 1, 5, 9);
    EXPECT_EQ(classes.finishBlock(), runs(384 + 128 + 22, 43));
}
