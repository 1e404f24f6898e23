#include <VelOsgDBBrx/MoveLevel.h>

#include <gtest/gtest.h>

using VelOsgDBBrx::deepestLevelWithin;

TEST(MoveLevel, IsTheDeepestWhosePointsAndThoseAboveAreWithinTheLimit)
{
    const std::map<int, int> points = {{0, 100}, {1, 400}, {2, 0}, {3, 1000}};
    EXPECT_EQ(deepestLevelWithin(points, 99), 0) << "something is drawn on any machine";
    EXPECT_EQ(deepestLevelWithin(points, 499), 0);
    EXPECT_EQ(deepestLevelWithin(points, 500), 2);
    EXPECT_EQ(deepestLevelWithin(points, 1499), 2);
    EXPECT_EQ(deepestLevelWithin(points, 1500), 3);
    EXPECT_EQ(deepestLevelWithin({}, 1500), 0);
}
