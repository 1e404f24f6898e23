#include <VelBrx/StoreInfo.h>
#include <VelBrx/Verify.h>

#include "store/io/ByteIo.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

using namespace VelBrx;

namespace {

bool loads(const std::string& path)
{
    StoreInfo info;
    return readStoreInfo(path, info).ok();
}

/// Writes one byte of an existing file.
void setByte(const std::string& path, size_t position, uint8_t value)
{
    std::fstream stream(path, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(static_cast<std::streamoff>(position));
    stream.put(static_cast<char>(value));
    ASSERT_TRUE(stream.flush());
}

/// A wrong header field under a checksum that fits it, as a hostile file has it.
struct Field
{
    const char* name;
    std::function<void(uint8_t*)> plant;
};

template <typename T>
Field wrong(const char* name, size_t position, T value)
{
    return {name, [=](uint8_t* file) { storeLe<T>(file + position, value); }};
}

const Field kHostileFields[] = {wrong<uint8_t>("version 1.3", 25, 3),
                                wrong<uint16_t>("header size", 94, 376),
                                wrong<uint8_t>("point format 6", 104, 6),
                                wrong<uint8_t>("compressed", 104, 0x87),
                                wrong<uint16_t>("record length", 105, 37),
                                wrong<uint32_t>("points in the header", 96, 100),
                                wrong<uint32_t>("points behind the file", 96, 0xFFFFFFFF),
                                wrong<uint32_t>("many VLRs", 100, 0xFFFFFFFF),
                                wrong<uint16_t>("long VLR", 375 + 20, 0xFFFF),
                                wrong<double>("scale 0", 131, 0),
                                wrong<double>("negative scale", 139, -0.01),
                                wrong<double>("NaN scale", 147, NAN),
                                wrong<double>("infinite offset", 155, INFINITY),
                                wrong<double>("scale too large", 131, 1e308),
                                wrong<double>("NaN bound", 179, NAN),
                                wrong<double>("bounds crossed", 187, 1e9),
                                wrong<uint64_t>("no points", 247, 0),
                                wrong<uint64_t>("more points", 247, 15),
                                wrong<uint64_t>("points overflow", 247, 0x8000000000000001u),
                                wrong<uint64_t>("points overflow times 36", 247, 0x71C71C71C71C71Du),
                                wrong<uint64_t>("EVLRs in the points", 235, 500),
                                wrong<uint64_t>("EVLRs behind the file", 235, 1 << 20),
                                wrong<uint64_t>("EVLRs overflow", 235, 0xFFFFFFFFFFFFFFF0u),
                                wrong<uint32_t>("no EVLRs", 243, 0),
                                wrong<uint32_t>("more EVLRs", 243, 2),
                                wrong<uint32_t>("many EVLRs", 243, 0xFFFFFFFF)};

} // namespace

TEST(DamagedStore, LoadsAsNothingWhenAnyBitInFrontOfOrBehindThePointsIsFlipped)
{
    const TempFolder folder;
    const TestStore store = smallStore();
    const std::vector<uint8_t> file = store.bytes();
    const std::string path = folder.write("flipped.brx", file);
    ASSERT_TRUE(loads(path));

    const size_t pointsEnd = store.pointDataStart() + 36 * store.points.size();
    for (size_t position = 0; position < file.size(); ++position) {
        if (position >= store.pointDataStart() && position < pointsEnd) continue;
        for (unsigned bit = 0; bit < 8; ++bit) {
            setByte(path, position, static_cast<uint8_t>(file[position] ^ (1u << bit)));
            ASSERT_FALSE(loads(path)) << "byte " << position << " bit " << bit;
            ASSERT_FALSE(verifyStore(path).empty()) << "byte " << position << " bit " << bit;
        }
        setByte(path, position, file[position]);
    }
    EXPECT_TRUE(loads(path));
}

TEST(DamagedStore, LoadsAsNothingWhenItIsCutAnywhere)
{
    const TempFolder folder;
    const std::vector<uint8_t> file = smallStore().bytes();
    const std::string path = folder.write("cut.brx", file);
    for (size_t length = file.size(); length-- > 0;) {
        std::filesystem::resize_file(path, length);
        ASSERT_FALSE(loads(path)) << length;
        ASSERT_FALSE(verifyStore(path).empty()) << length;
    }
}

TEST(DamagedStore, VerifiesAsBadWhenBytesFollowItsLastRecord)
{
    const TempFolder folder;
    std::vector<uint8_t> file = smallStore().bytes();
    file.resize(file.size() + 5);
    const std::vector<std::string> problems = verifyStore(folder.write("longer.brx", file));
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].rfind("5 bytes follow", 0), 0u) << problems[0];
}

TEST(DamagedStore, LoadsAsNothingWhenItHasTwoIndices)
{
    const TestStore store = smallStore();
    std::vector<uint8_t> file = store.bytes();
    const std::vector<uint8_t> record(file.begin() + static_cast<ptrdiff_t>(store.indexStart()) - 60,
                                      file.end());
    storeLe<uint32_t>(file.data() + 243, 2);
    fitChecksums(file, store);
    file.insert(file.end(), record.begin(), record.end());
    const TempFolder folder;
    StoreInfo info;
    const Status status = readStoreInfo(folder.write("two.brx", file), info);
    EXPECT_NE(status.message().find("two store records with id 1"), std::string::npos) << status.message();
}

TEST(DamagedStore, LoadsAsNothingWithAHeaderFieldThatIsHostile)
{
    for (const Field& field : kHostileFields) {
        const TestStore store = smallStore();
        std::vector<uint8_t> file = store.bytes();
        field.plant(file.data());
        fitChecksums(file, store);
        const TempFolder folder;
        const std::string path = folder.write("hostile.brx", file);
        EXPECT_FALSE(loads(path)) << field.name;
        EXPECT_FALSE(verifyStore(path).empty()) << field.name;
    }
}
