#include "loading/CellGeometry.h"
#include "store/io/ByteIo.h"
#include "tests/support/BuildStore.h"
#include "tests/support/EditedStore.h"
#include "tests/support/TestLas.h"

#include <VelOsgDBBrx/EditLens.h>
#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgDBBrx/OpenCloud.h>
#include <VelOsgDBBrx/PCDataManager.h>

#include <gtest/gtest.h>

#include <osg/Group>

#include <random>

using namespace VelOsgDBBrx;
using VelBrx::EditEntry;

namespace {

constexpr uint32_t kPoints = 200000; // several blocks of marks, dozens of cells

std::string makeStore(const TempFolder& folder)
{
    TestLas las;
    std::mt19937 random(1);
    for (uint32_t i = 0; i < kPoints; ++i) {
        auto& record =
            las.addPoint(static_cast<int32_t>(random() % 100000), static_cast<int32_t>(random() % 100000), 0);
        record[15] = random() % 10 ? 0 : 4;
        record[16] = 2;
        record[17] = static_cast<uint8_t>(random());
    }
    buildStoreOf(folder.write("survey.las", las.bytes()), folder.file("store.brx"));
    return folder.file("store.brx");
}

/// A store of many cells.
class EditLensTest : public testing::Test
{
protected:
    EditLensTest()
    {
        OpenedCloud opened;
        EXPECT_TRUE(openCloud(store, {}, opened));
        cloud = opened.cloud;
        collect(*octree().root);
        EXPECT_GT(cells.size(), 20u);
    }

    void loadEverySecondCell()
    {
        for (size_t i = 0; i < cells.size(); i += 2)
            loaded.push_back(PCDataManager::getInstance()->acquireNodeOrCreate(cells[i]));
    }

    OctreeInfo& octree() { return *cloud->getOctree(); }

    void collect(CellData& cell)
    {
        cells.push_back(&cell);
        for (const auto& child : cell.children)
            collect(*child);
    }

    /// The marks that the leaf's points have, by record; -1 for points of other cells.
    static void addMarks(osg::Node& leaf, std::vector<int>& marks, const std::vector<uint8_t>& bytes)
    {
        auto& geometry = *leaf.asGroup()->getChild(0)->asGeometry();
        const auto& indices = dynamic_cast<const osg::Vec2iArray&>(*geometry.getUserData());
        const auto& elements = dynamic_cast<const osg::IntArray&>(*geometry.getVertexAttribArray(7));
        for (size_t i = 0; i < elements.size(); ++i) {
            const auto record = static_cast<size_t>(static_cast<uint32_t>(indices[i].x()));
            ASSERT_EQ(elements[i] & 0xFF, bytes[EditedStore::kStart + record * 36 + 17]);
            marks[record] = elements[i] >> 8;
        }
    }

    /// Of all points: of the loaded cells as they are, of the others as they are read now.
    std::vector<int> marks()
    {
        std::vector<int> found(kPoints, -1);
        const std::vector<uint8_t> bytes = readFile(store);
        for (const auto& node : loaded)
            addMarks(*node, found, bytes);
        LasReaderWriter reader;
        for (size_t i = 1; i < cells.size(); i += 2) {
            const osg::ref_ptr<osg::Node> leaf = reader.read(cells[i]);
            addMarks(*leaf, found, bytes);
        }
        return found;
    }

    /// Every point of a stretch of records that is one of `step`.
    static std::vector<EditedStore::Change> stretch(uint32_t first, uint32_t end, uint32_t step,
                                                    uint8_t value)
    {
        std::vector<EditedStore::Change> changes;
        for (uint32_t point = first; point < end; point += step)
            changes.push_back({point, value});
        return changes;
    }

    static void paint(std::vector<int>& marks, const std::vector<EditedStore::Change>& changes, int mark)
    {
        for (const EditedStore::Change& change : changes)
            marks[change.point] = mark;
    }

    const TempFolder folder;
    const std::string store = makeStore(folder);
    osg::ref_ptr<IPointCloud> cloud;
    std::vector<CellData*> cells;
    std::vector<osg::ref_ptr<osg::Node>> loaded;
};

} // namespace

TEST_F(EditLensTest, MarksThePointsThatEditsTouchedLastAndFollowsUndoInLoadedCellsAndThoseReadLater)
{
    loadEverySecondCell();
    std::vector<EditEntry> edits;
    ASSERT_TRUE(EditLens::showEdits(octree(), edits)) << "no journal is no failure";
    EXPECT_TRUE(edits.empty());
    const EditedStore::Journal journal = EditedStore::open(store);
    std::vector<EditedStore::Change> hiding = stretch(1000, 150000, 1, 4); // a block whole, in short runs
    for (EditedStore::Change& change : hiding)
        change.value = change.point % 2 ? 4 : 2;
    const std::vector<EditedStore::Change> classes = stretch(140000, 190000, 3, 9);
    const std::vector<EditedStore::Change> more = stretch(0, kPoints, 7, 2);
    uint64_t number = 0;
    uint64_t points = 0;
    ASSERT_TRUE(EditedStore::hide(journal, store, hiding, number));
    ASSERT_TRUE(EditedStore::classify(journal, std::vector<uint8_t>(kPoints, 2), classes, number));
    ASSERT_TRUE(EditedStore::hide(journal, store, more, number));

    std::vector<int> expected(kPoints, 0);
    paint(expected, hiding, 1);
    paint(expected, classes, 2);
    const std::vector<int> withoutMore = expected;
    paint(expected, more, 3);
    ASSERT_TRUE(EditLens::showEdits(octree(), edits));
    ASSERT_EQ(edits.size(), 3u);
    EXPECT_EQ(edits[1].author, "bernd");
    EXPECT_TRUE(marks() == expected);
    ASSERT_TRUE(journal->moveTo(2, "", nullptr, points));
    ASSERT_TRUE(EditLens::showEdits(octree(), edits));
    EXPECT_EQ(edits.size(), 2u);
    EXPECT_TRUE(marks() == withoutMore);
    ASSERT_TRUE(journal->moveTo(3, "", nullptr, points));
    ASSERT_TRUE(EditLens::showEdits(octree(), edits));
    EXPECT_TRUE(marks() == expected);

    std::vector<uint8_t> foreign = readFile(VelBrx::journalPath(store));
    std::filesystem::rename(VelBrx::journalPath(store), folder.file("moved"));
    foreign[130] ^= 1;
    folder.write("store.brx.edits", foreign);
    EXPECT_FALSE(EditLens::showEdits(octree(), edits)) << "a damaged journal";
    EXPECT_TRUE(edits.empty());
    EXPECT_TRUE(marks() == expected) << "nothing was changed";
    EditLens::end(octree());
    const osg::ref_ptr<osg::Node> leaf = LasReaderWriter().read(cells[1]);
    std::vector<int> found(kPoints, 0);
    addMarks(*leaf, found, readFile(store));
    EXPECT_EQ(found, std::vector<int>(kPoints, 0));
}

TEST_F(EditLensTest, MarksWhatDiffersFromTheStoreAsItWasBuilt)
{
    const std::vector<uint8_t> before = readFile(store);
    std::vector<uint8_t> after = before;
    std::vector<int> expected(kPoints, 0);
    for (uint32_t point = 0; point < kPoints; point += 1 + point % 5) {
        const int mark = static_cast<int>(point % 4);
        uint8_t* const record = &after[EditedStore::kStart + point * 36];
        if (mark & 1) record[15] ^= 4;
        if (mark & 2) record[16] = 6;
        expected[point] = mark;
    }
    std::ofstream(store, std::ios::binary | std::ios::in)
        .write(reinterpret_cast<const char*>(after.data()), static_cast<std::streamsize>(after.size()));
    loadEverySecondCell();
    const VelBrx::Status status = EditLens::showBuilt(octree());
    ASSERT_TRUE(status) << status.message();
    EXPECT_TRUE(marks() == expected);
}
