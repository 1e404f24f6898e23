#include "store/sample/Scene.h"
#include "store/sample/Noise.h"

#include <gtest/gtest.h>

#include <array>

using namespace VelBrx::Sample;

namespace {

Vec3 anywhere(Random& random, double low, double high)
{
    Vec3 place;
    for (double& coordinate : place)
        coordinate = random.between(low, high);
    return place;
}

} // namespace

/// Bodies lie across many squares; a ray passes several, and may go outside the landscape.
TEST(SceneTest, RaysMeetEachBodyOnceWhereItIs)
{
    constexpr Matter matter = {kBuilding, 0.4, 0, 1};
    constexpr size_t kBodies = 80;
    const Landscape landscape(100, 1);
    Scene scene(landscape);
    Random random(5);
    std::array<Vec3, kBodies> centers; // of spheres; the inner half of their width alone stands
    std::array<double, kBodies> radii;
    for (size_t i = 0; i < kBodies; ++i) {
        centers[i] = anywhere(random, -10, 110);
        radii[i] = random.between(0.5, 12);
        const double edge = radii[i] / std::sqrt(3);
        scene.addSolid(Eigen::Translation3d(centers[i]) * Eigen::Scaling(edge), {{1, 0, 0, 1}, {-1, 0, 0, 1}},
                       matter, Color(double(i), 0, 0), Color::Zero());
    }
    size_t hits = 0;
    for (int i = 0; i < 3000; ++i) {
        Vec3 direction = anywhere(random, -1, 1);
        if (i % 10 == 0) direction.y() = 0;
        const Ray ray(anywhere(random, -20, 120), direction.normalized());
        const double from = random.between(-50, 0), to = random.between(1, 150);
        std::array<int, kBodies> visits{};
        scene.meet(ray, from, to, [&](const Body& body, const Passage& passage) {
            const auto index = static_cast<size_t>(body.color.x());
            ++visits[index];
            for (double t : {passage.enter, passage.leave}) {
                const Vec3 way = ray.pointAt(t) - centers[index];
                const double edge = radii[index] / std::sqrt(3);
                EXPECT_LE(way.norm(), radii[index] + 1e-9);
                EXPECT_LE(std::abs(way.x()), edge + 1e-9);
                EXPECT_TRUE(way.norm() > radii[index] - 1e-9 || std::abs(way.x()) > edge - 1e-9);
            }
        });
        for (size_t body = 0; body < kBodies; ++body) {
            bool isHit = false;
            for (double t = from; t < to && !isHit; t += 0.2) {
                const Vec3 way = ray.pointAt(t) - centers[body];
                isHit = way.norm() < radii[body] && std::abs(way.x()) < radii[body] / std::sqrt(3);
            }
            EXPECT_LE(visits[body], 1);
            EXPECT_TRUE(!isHit || visits[body] == 1) << "ray " << i << ", body " << body;
            hits += isHit;
        }
    }
    EXPECT_GT(hits, 500u);
}
