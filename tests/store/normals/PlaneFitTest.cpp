#include <VelBrx/PlaneFit.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace VelBrx;

namespace {

std::array<float, 3> fit(const std::vector<Position>& positions)
{
    std::vector<const Position*> pointers;
    for (const Position& position : positions)
        pointers.push_back(&position);
    return planeNormal(pointers.data(), pointers.size());
}

void expectNormal(const std::array<float, 3>& normal, double x, double y, double z)
{
    const double length = std::sqrt(x * x + y * y + z * z);
    EXPECT_NEAR(normal[0], x / length, 1e-6);
    EXPECT_NEAR(normal[1], y / length, 1e-6);
    EXPECT_NEAR(normal[2], z / length, 1e-6);
}

/// Positions far from the origin, as steps of a millimetre are in a national grid.
std::vector<Position> line(double x, double y, double z)
{
    std::vector<Position> positions;
    for (double t : {0.0, 3.0, 7.0, 20.0})
        positions.push_back({1.9e9 + t * x, -1.8e9 + t * y, 1e6 + t * z});
    return positions;
}

} // namespace

TEST(PlaneFit, PointsUpwardsFromAPlane)
{
    const auto plane = [](double a, double b) {
        std::vector<Position> positions;
        for (double x : {-5.0, 0.0, 3.0})
            for (double y : {-2.0, 4.0, 9.0})
                positions.push_back({1.9e9 + x, 1.8e9 + y, -1e6 + a * x + b * y});
        return positions;
    };
    expectNormal(fit(plane(0, 0)), 0, 0, 1);
    expectNormal(fit(plane(2, 0)), -2, 0, 1);
    expectNormal(fit(plane(-1, 30)), 1, -30, 1);
    expectNormal(fit({{0, 0, 0}, {4, 0, 0}, {0, 0, 5}, {4, 0, 5}}), 0, 1, 0);
    expectNormal(fit({{0, 0, 0}, {0, 4, 0}, {0, 0, 5}, {0, 4, 5}}), 1, 0, 0);
}

TEST(PlaneFit, HasARuleWhereThereIsNoPlane)
{
    expectNormal(fit(std::vector<Position>(16, {7, 8, 9})), 0, 0, 1);
    expectNormal(fit({{7, 8, 9}}), 0, 0, 1);
    expectNormal(fit(line(1, 0, 0)), 0, 0, 1);
    expectNormal(fit(line(1, 1, 0)), 0, 0, 1);
    expectNormal(fit(line(1, 0, 1)), -1, 0, 1);
    expectNormal(fit(line(0, -3, 4)), 0, 4, 3);
    expectNormal(fit(line(0, 0, 1)), 1, 0, 0);
}
