#include "store/las/LasFile.h"

#include "store/io/ByteIo.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <functional>

using namespace VelBrx;

namespace {

TestLas threePoints()
{
    TestLas las;
    las.vlrs.push_back(wktVlr("PROJCS[\"somewhere\"]"));
    for (int32_t i = 0; i < 3; ++i)
        las.addPoint(i, 2 * i, 3 * i);
    return las;
}

class LasFileTest : public testing::Test
{
protected:
    TempFolder folder;

    LasFile read(const std::vector<uint8_t>& bytes)
    {
        LasFile file;
        const Status status = readLasFile(folder.write("cloud.las", bytes), file);
        EXPECT_TRUE(status) << status.message();
        return file;
    }

    void expectFailure(const std::vector<uint8_t>& bytes, const std::string& word)
    {
        LasFile file;
        const std::string path = folder.write("cloud.las", bytes);
        const Status status = readLasFile(path, file);
        EXPECT_FALSE(status) << word;
        EXPECT_EQ(status.message().rfind(path + ": ", 0), 0u) << status.message();
        EXPECT_NE(status.message().find(word), std::string::npos) << status.message();
        EXPECT_EQ(status.message().find('\n'), std::string::npos);
    }
};

} // namespace

TEST_F(LasFileTest, ReadsHeadsOfEveryVersion)
{
    for (uint8_t minor : {0, 1, 2, 3, 4}) {
        TestLas las = threePoints();
        las.versionMinor = minor;
        las.pointFormat = 1;
        las.recordLength = 28;
        las.gap = {0xDD, 0xCC};
        las.scale = {0.01, 0.02, 0.5};
        las.offset = {500, -7, 0.25};
        const LasFile file = read(las.bytes());
        EXPECT_EQ(file.pointCount, 3u);
        EXPECT_EQ(file.pointDataStart, las.pointDataStart());
        EXPECT_EQ(file.scale[1], 0.02);
        EXPECT_EQ(file.offset[1], -7);
        ASSERT_EQ(file.vlrs.size(), 1u);
        EXPECT_EQ(file.vlrs[0].userId, "LASF_Projection");
        EXPECT_EQ(file.vlrs[0].data, las.vlrs[0].data);
        EXPECT_TRUE(file.notes.empty()) << file.notes[0];
    }
}

TEST_F(LasFileTest, TakesWhatIsThereAndSaysSoWhenTheHeadLies)
{
    const std::vector<uint8_t> sound = threePoints().bytes();
    struct Lie
    {
        const char* word; ///< of the note
        std::function<void(std::vector<uint8_t>&)> tell;
        uint64_t points;
        size_t vlrs;
    };
    const Lie lies[] = {
        {"points", [](auto& b) { storeLe<uint64_t>(&b[247], 1000); }, 3, 1},
        {"points", [](auto& b) { storeLe<uint64_t>(&b[247], ~uint64_t(0)); }, 3, 1},
        {"points", [](auto& b) { b.resize(b.size() - 1); }, 2, 1},
        {"behind the last", [](auto& b) { storeLe<uint64_t>(&b[247], 2); }, 2, 1},
        {"variable length", [](auto& b) { storeLe<uint32_t>(&b[100], 0xFFFFFFFF); }, 3, 1},
        {"variable length", [](auto& b) { storeLe<uint16_t>(&b[375 + 20], 0xFFFF); }, 3, 0},
        {"extended", [](auto& b) { storeLe<uint32_t>(&b[243], 5), storeLe<uint64_t>(&b[235], b.size()); }, 3,
         1},
        {"extended", [](auto& b) { storeLe<uint32_t>(&b[243], 1), storeLe<uint64_t>(&b[235], ~uint64_t(0)); },
         3, 1},
        {"1.5", [](auto& b) { b[25] = 5; }, 3, 1},
    };
    for (const Lie& lie : lies) {
        std::vector<uint8_t> bytes = sound;
        lie.tell(bytes);
        const LasFile file = read(bytes);
        EXPECT_EQ(file.pointCount, lie.points) << lie.word;
        EXPECT_EQ(file.vlrs.size(), lie.vlrs) << lie.word;
        ASSERT_EQ(file.notes.size(), 1u) << lie.word;
        EXPECT_NE(file.notes[0].find(lie.word), std::string::npos) << file.notes[0];
    }
}

TEST_F(LasFileTest, RefusesInOneLineWhatHasNoReadablePoints)
{
    const std::vector<uint8_t> sound = threePoints().bytes();
    const auto changed = [&](const std::function<void(std::vector<uint8_t>&)>& change) {
        std::vector<uint8_t> bytes = sound;
        change(bytes);
        return bytes;
    };
    expectFailure({}, "LASF");
    expectFailure({'L', 'A', 'S', 'F'}, "cut off");
    expectFailure(changed([](auto& b) { b[0] = 'X'; }), "LASF");
    expectFailure(changed([](auto& b) { b[24] = 2; }), "version 2.4");
    expectFailure(changed([](auto& b) { b[104] |= 0x80; }), "LAZ");
    expectFailure(changed([](auto& b) { b[104] = 11; }), "format 11");
    expectFailure(changed([](auto& b) { storeLe<uint16_t>(&b[105], 35); }), "35 bytes");
    expectFailure(changed([](auto& b) { storeLe<uint16_t>(&b[94], 100); }), "header of 100");
    expectFailure(changed([](auto& b) { storeLe<uint32_t>(&b[96], 10); }), "byte 10");
    expectFailure(changed([](auto& b) { storeLe<uint32_t>(&b[96], 1 << 30); }), "points start");
    expectFailure(changed([](auto& b) { storeLe<double>(&b[131], 0); }), "scale");
    expectFailure(changed([](auto& b) { storeLe<double>(&b[155], 1.0 / 0.0); }), "offset");
}

TEST_F(LasFileTest, NeverCrashesOnACutFile)
{
    TestLas las = threePoints();
    las.evlrs.push_back({"somebody", 9, {1, 2, 3}});
    const std::vector<uint8_t> sound = las.bytes();
    for (size_t size = 0; size < sound.size(); ++size) {
        LasFile file;
        const Status status = readLasFile(
            folder.write("cloud.las", {sound.begin(), sound.begin() + std::ptrdiff_t(size)}), file);
        if (status) {
            EXPECT_LE(file.pointDataEnd(), size);
        }
    }
}
