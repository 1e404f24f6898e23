#include "tests/support/NoRoom.h"
#include "tests/support/OtherEditor.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/File.h>
#include <VelBrx/FileWriter.h>

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include <fcntl.h>
#include <sys/file.h>

using VelBrx::File;
using VelBrx::FileWriter;

namespace {

constexpr size_t kStride = 36;
constexpr size_t kByte = 15;

/// Whether whoever comes next finds the file locked.
bool isLocked(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool locked = flock(descriptor, LOCK_EX | LOCK_NB) != 0;
    close(descriptor);
    return locked;
}

struct FileWriterTest : testing::Test
{
    FileWriterTest()
    {
        std::mt19937 random(3);
        for (uint8_t& byte : before)
            byte = static_cast<uint8_t>(random());
        for (uint32_t place = 0; place < before.size() / kStride;
             place += random() % 3 ? 1 : 1 + random() % 500)
            places.push_back(place);
    }

    static uint8_t turned(uint8_t byte) { return static_cast<uint8_t>(byte ^ 0xA5); }

    size_t set(FileWriter& writer, File& file) const
    {
        uint8_t* memory = static_cast<uint8_t*>(file.map(0, static_cast<int64_t>(before.size())));
        return writer.set(memory, kStride, kByte, places.data(), places.size(),
                          [](size_t, uint8_t old) { return turned(old); });
    }

    /// What the file is after the bytes of the first `count` places have been set.
    std::vector<uint8_t> after(size_t count) const
    {
        std::vector<uint8_t> bytes = before;
        for (size_t i = 0; i < count; ++i)
            bytes[places[i] * kStride + kByte] = turned(bytes[places[i] * kStride + kByte]);
        return bytes;
    }

    std::vector<uint8_t> content(const std::string& path) const
    {
        std::vector<uint8_t> bytes = readFile(path);
        bytes.resize(before.size());
        return bytes;
    }

    TempFolder folder;
    std::vector<uint8_t> before = std::vector<uint8_t>(400 * 1000);
    std::vector<uint32_t> places;
};

} // namespace

TEST_F(FileWriterTest, SetsTheBytesOfThePlacesAndNoOthers)
{
    for (const bool withHole : {false, true}) {
        const std::string path = folder.write(withHole ? "holed" : "whole", before);
        if (withHole) appendHole(path);
        File file(path.c_str());
        FileWriter writer(file);
        ASSERT_TRUE(writer.isOpen());
        EXPECT_EQ(set(writer, file), places.size());
        EXPECT_EQ(content(path), after(places.size()));
        const auto* mapped = static_cast<const uint8_t*>(file.map(0, static_cast<int64_t>(before.size())));
        EXPECT_EQ(std::vector<uint8_t>(mapped, mapped + before.size()), after(places.size()));
        EXPECT_EQ(writer.problem(), "");
    }
}

TEST_F(FileWriterTest, SaysHowFarItCameWhereTheDiskHasNoRoom)
{
    const std::string path = folder.write("holed", before);
    appendHole(path);
    File file(path.c_str());
    FileWriter writer(file);
    size_t done = 0;
    {
        const NoRoom noRoom(before.size() / 2);
        done = set(writer, file);
    }
    EXPECT_GT(done, places.size() / 3);
    EXPECT_LT(done, places.size());
    EXPECT_EQ(content(path), after(done));
    EXPECT_NE(writer.problem().find("make room"), std::string::npos) << writer.problem();
}

TEST_F(FileWriterTest, DoesNotOpenAFileThatHasTakenTheNameOfTheMappedOne)
{
    const std::string path = folder.write("file", before);
    File file(path.c_str());
    std::filesystem::rename(folder.write("other", before), path);
    FileWriter writer(file);
    EXPECT_FALSE(writer.isOpen());
    EXPECT_EQ(set(writer, file), 0u);
    EXPECT_NE(writer.problem(), "");
    EXPECT_EQ(content(path), before);
}

TEST_F(FileWriterTest, ASecondEditorLearnsWhoTheFirstIsAndMayDecideToEditAllTheSame)
{
    const std::string path = folder.write("file", before);
    OtherEditor other(path);
    ASSERT_TRUE(other.edits());
    File file(path.c_str());
    const VelBrx::Status refused = file.lockForEditing();
    EXPECT_NE(refused.message().find("process " + std::to_string(other.process())), std::string::npos)
        << refused.message();
    EXPECT_EQ(content(path), before) << "the lock hinders no reader";
    File second(path.c_str());
    second.editAnyway();
    EXPECT_TRUE(second.lockForEditing().ok());
    EXPECT_TRUE(file.lockForEditing().ok()) << "the choice is the process's";
}

TEST_F(FileWriterTest, ALockEndsWithItsProcessAndWithTheLastFileThatHoldsIt)
{
    const std::string path = folder.write("file", before);
    OtherEditor first(path);
    ASSERT_TRUE(first.edits());
    first.kill();
    auto one = std::make_unique<File>(path.c_str());
    auto two = std::make_unique<File>(path.c_str());
    EXPECT_TRUE(one->lockForEditing().ok());
    EXPECT_TRUE(two->lockForEditing().ok());
    one.reset();
    EXPECT_TRUE(isLocked(path));
    two.reset();
    EXPECT_FALSE(isLocked(path));
}
