#include <VelBrx/MiraLasRead.h>
#include <VelBrx/Normals.h>

#include "store/io/ByteIo.h"
#include "store/las/LasLayout.h"
#include "tests/support/BuildStore.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

using namespace VelBrx;

namespace {

constexpr double kRadius = 100000; // steps

class NormalsTest : public testing::Test
{
protected:
    TempFolder folder;
    NormalsOptions options;
    std::vector<uint8_t> store;

    NormalsTest() { options.store = folder.file("cloud.brx"); }

    /// Makes a store of the upper half of a sphere.
    void buildSphere(int points)
    {
        TestLas las;
        std::mt19937 random(1);
        std::normal_distribution<double> normal;
        for (int i = 0; i < points; ++i) {
            const double x = normal(random), y = normal(random), z = std::abs(normal(random));
            const double scale = kRadius / std::sqrt(x * x + y * y + z * z);
            las.addPoint(static_cast<int32_t>(std::lround(x * scale)),
                         static_cast<int32_t>(std::lround(y * scale)),
                         static_cast<int32_t>(std::lround(z * scale)));
        }
        buildStoreOf(folder.write("cloud.las", las.bytes()), options.store);
        store = readFile(options.store);
    }

    double coordinate(size_t point, size_t axis) const
    {
        using namespace LasLayout;
        const uint8_t* const record = &store[loadLe<uint32_t>(&store[kPointDataStart]) + point * kPointSize];
        return loadLe<int32_t>(record + 4 * axis) * 0.01 + loadLe<double>(&store[kOffset + 8 * axis]);
    }

    void expectFailure(const std::string& words)
    {
        const Status status = writeNormals(options);
        EXPECT_FALSE(status);
        EXPECT_NE(status.message().find(words), std::string::npos) << status.message();
    }
};

} // namespace

TEST_F(NormalsTest, StandInTheOrderOfTheStoreBehindAHeader)
{
    buildSphere(60000);
    options.threads = 3;
    ASSERT_TRUE(writeNormals(options));
    const std::vector<uint8_t> file = readFile(normalsPath(options.store));
    ASSERT_EQ(file.size(), 16u + 16 * 60000);
    EXPECT_EQ(std::memcmp(file.data(), "VBNM", 4), 0);
    BrxHeader header;
    ASSERT_TRUE(MiraLasRead::getBrxHeader(header, options.store.c_str()));
    EXPECT_EQ(loadLe<uint32_t>(&file[4]), 2u);
    EXPECT_EQ(loadLe<uint64_t>(&file[8]), header.storeId);
    for (size_t i = 0; i < 60000; ++i) {
        const uint8_t* const normal = &file[16 + 16 * i];
        double along = 0;
        for (size_t axis = 0; axis < 3; ++axis)
            along += loadLe<float>(normal + 4 * axis) * coordinate(i, axis) / (kRadius * 0.01);
        EXPECT_GE(loadLe<float>(normal + 8), 0);
        EXPECT_EQ(loadLe<float>(normal + 12), 0);
        // At the rim half of the neighbourhood is missing, and upwards may be inwards.
        if (coordinate(i, 2) > 0.1 * kRadius * 0.01) {
            EXPECT_GT(along, 0.99) << i;
        }
    }
    EXPECT_EQ(readFile(options.store), store);
}

TEST_F(NormalsTest, AreFoundWhereTheyFitTheStore)
{
    buildSphere(500);
    EXPECT_EQ(findNormals(options.store), "");
    ASSERT_TRUE(writeNormals(options));
    const std::string path = options.store + ".normals";
    EXPECT_EQ(findNormals(options.store), path);
    std::filesystem::resize_file(path, 16 + 500 * 16 - 1);
    EXPECT_EQ(findNormals(options.store), "");
}

TEST_F(NormalsTest, OfAStoreAreRemovedWhenItIsBuiltAnew)
{
    buildSphere(500);
    ASSERT_TRUE(writeNormals(options));
    buildSphere(500);
    EXPECT_FALSE(std::filesystem::exists(normalsPath(options.store)));
}

TEST_F(NormalsTest, AreRefusedInOneLine)
{
    expectFailure("cloud.brx: cannot be opened");
    buildSphere(100);
    options.neighbours = 2;
    expectFailure("3 to 256 neighbours");
    options.neighbours = 3;
    ASSERT_TRUE(writeNormals(options));
    expectFailure("cloud.brx.normals: exists already");
    options.overwrite = true;
    ASSERT_TRUE(writeNormals(options));
}
