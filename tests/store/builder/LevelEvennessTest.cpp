#include "tests/support/BuildStore.h"
#include "tests/support/LevelDensity.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestLas.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

constexpr int kSide = 100000;  ///< of the survey, steps
constexpr int kCube = 1 << 17; ///< edge of the root cell
constexpr int kOverlapLeft = 40000;
constexpr int kOverlapRight = 60000;
constexpr int kRoughness = 400; ///< less than the 512 of a square of level 1
constexpr int kWaves = 400;

/// A rough field on low waves, from two flight lines that overlap in the middle; towards the north each is
/// four times as dense as in the south.
TestLas flightLines()
{
    TestLas las;
    std::mt19937 random(17);
    std::uniform_real_distribution<double> any(0, 1);
    for (const int left : {0, kOverlapLeft}) {
        for (int i = 0; i < 400000; ++i) {
            const double part = (std::sqrt(1 + 15 * any(random)) - 1) / 3;
            const double x = left + any(random) * kOverlapRight;
            const double height = kWaves * (1 + std::sin(x / 3000)) + kRoughness * any(random);
            las.addPoint(static_cast<int>(x), static_cast<int>(part * kSide), static_cast<int>(height));
        }
    }
    return las;
}

/// Points a square of the sampling grid of a level, all levels down to `last`.
class Density
{
public:
    Density(const LevelDensity& levels, unsigned level, unsigned last)
        : _divisions(LevelDensity::gridDivisions(level)), _counts(levels.counts(0, last, _divisions))
    {
    }

    int squareAt(int steps) const { return static_cast<int>(int64_t{steps} * _divisions / kCube); }

    uint32_t at(int x, int y) const
    {
        return _counts[static_cast<size_t>(y) * _divisions + static_cast<size_t>(x)];
    }

    /// Mean over a block of squares.
    double mean(int left, int bottom, int width, int height) const
    {
        double sum = 0;
        for (int y = bottom; y < bottom + height; ++y)
            for (int x = left; x < left + width; ++x)
                sum += at(x, y);
        return sum / (width * height);
    }

private:
    const unsigned _divisions;
    const std::vector<uint32_t> _counts;
};

class LevelEvenness : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        const TempFolder folder;
        buildStoreOf(folder.write("lines.las", flightLines().bytes()), folder.file("lines.brx"));
        levels = std::make_unique<LevelDensity>(folder.file("lines.brx"));
        ASSERT_GE(levels->levelCount(), 4u);
    }
    static void TearDownTestSuite() { levels.reset(); }

    static inline std::unique_ptr<LevelDensity> levels;
};

double stepBetween(double a, double b)
{
    return std::max(a, b) / std::min(a, b);
}

} // namespace

TEST_F(LevelEvenness, CoarseLevelsHaveOnePointASquareWhereLinesOverlapAndWhereNot)
{
    for (const unsigned level : {0u, 1u}) {
        const Density density(*levels, level, level);
        int others = 0;
        int squares = 0;
        for (int y = 0; y < density.squareAt(kSide); ++y) {
            for (int x = 0; x < density.squareAt(kSide); ++x) {
                ++squares;
                others += density.at(x, y) != 1;
            }
        }
        EXPECT_LT(others, squares / 100) << "level " << level << ": stripes, clumps, contours or holes";
        const int height = density.squareAt(kSide);
        const int overlap = density.squareAt(kOverlapLeft) + 1;
        const int width = density.squareAt(kOverlapRight) - overlap;
        EXPECT_LT(stepBetween(density.mean(overlap, 0, width, height), density.mean(0, 0, width, height)),
                  1.01);
    }
}

TEST_F(LevelEvenness, NoLevelHasStepsInDensityThatThePointsHaveNot)
{
    constexpr int kBlock = 64;           // squares: an octant of a cell
    constexpr double kLargestStep = 1.1; // what octants keep beyond their level, and chance
    for (unsigned level = 0; level + 1 < levels->levelCount(); ++level) {
        const Density shown(*levels, level, level);
        const Density all(*levels, level, levels->levelCount() - 1);
        const auto expectNoStep = [&](int x, int y, int otherX, int otherY) {
            const auto riseOf = [&](const Density& density) {
                return density.mean(x * kBlock, y * kBlock, kBlock, kBlock) /
                       density.mean(otherX * kBlock, otherY * kBlock, kBlock, kBlock);
            };
            const double rise = riseOf(shown);
            const double ofPoints = riseOf(all);
            EXPECT_LT(rise, std::max(1.0, ofPoints) * kLargestStep) << "level " << level;
            EXPECT_GT(rise, std::min(1.0, ofPoints) / kLargestStep) << "level " << level;
        };
        const int end = shown.squareAt(kSide) / kBlock;
        for (int y = 0; y < end; ++y) {
            for (int x = 0; x < end; ++x) {
                if (x > 0) expectNoStep(x, y, x - 1, y);
                if (y > 0) expectNoStep(x, y, x, y - 1);
            }
        }
    }
}
