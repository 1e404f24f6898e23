#pragma once

#include "store/sample/Landscape.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace VelBrx::Sample {

/// ASPRS classes of the survey.
enum PointClass : uint8_t
{
    kPlant = 0, ///< low, medium or high vegetation, by the height of the point
    kUnclassified = 1,
    kGround = 2,
    kLowVegetation = 3,
    kMediumVegetation = 4,
    kHighVegetation = 5,
    kBuilding = 6,
    kWater = 9,
    kWire = 14
};

/// What bodies are of.
struct Matter
{
    PointClass pointClass;
    double reflectance;
    double pieces; ///< that a beam meets in a metre
    double share;  ///< of the light that a piece throws back; 1: a surface, where the beam ends
};

/// A half space, from its border against its normal.
using Face = Eigen::Hyperplane<double, 3>;

/// A sphere, cut by the half spaces of its faces.
struct Body
{
    Vec3 center;
    double radius;
    const Matter* matter;
    Color color;
    Color top; ///< of faces that look upwards
    std::vector<Face> faces;
};

/// Distances at which a ray enters and leaves a body, and the normal of the face by which it enters.
struct Passage
{
    double enter;
    double leave;
    Vec3 normal;
};

/// What stands on a landscape, found by place. Any thread may use it once all is placed.
class Scene
{
public:
    explicit Scene(const Landscape& landscape);

    const Landscape& landscape() const { return _landscape; }

    void addBall(const Vec3& center, double radius, const Matter& matter, const Color& color)
    {
        add({center, radius, &matter, color, color, {}});
    }

    /// A body within the cube from -1 to 1 of `frame`. Its faces are lists of four numbers: half spaces
    /// a x + b y + c z <= d of that cube.
    void addSolid(const Eigen::Affine3d& frame, const std::vector<std::array<double, 4>>& faces,
                  const Matter& matter, const Color& color, const Color& top);

    /// Whether something other than plants is at (x, y).
    bool isBuiltUp(double x, double y) const;

    /// Calls `visit(body, passage)` for each body that the ray meets in the squares between two distances.
    template <typename Visit>
    void meet(const Ray& ray, double from, double to, const Visit& visit) const;

private:
    static constexpr double kSquare = 8; ///< edge of the squares that list bodies

    struct Square
    {
        std::vector<uint32_t> bodies; ///< over it
        double top = -1e9;            ///< of these
    };

    void add(const Body& body);
    int64_t lineAt(double coordinate) const;
    const Square& squareAt(double x, double y) const;

    const Landscape& _landscape;
    int64_t _width; ///< in squares
    std::vector<Body> _bodies;
    std::vector<Square> _squares;
};

template <typename Visit>
void Scene::meet(const Ray& ray, double from, double to, const Visit& visit) const
{
    const auto toEdge = [](double place, double direction) {
        if (direction == 0) return std::numeric_limits<double>::infinity();
        const double edge = (std::floor(place / kSquare) + (direction > 0 ? 1 : 0)) * kSquare;
        return (edge - place) / direction;
    };
    for (double begin = from, end = from; begin < to; begin = end) {
        constexpr double kInside = 1e-6;
        const Vec3 place = ray.pointAt(begin + kInside);
        end = begin + kInside +
              std::min(toEdge(place.x(), ray.direction().x()), toEdge(place.y(), ray.direction().y()));
        if (end >= to) end = std::numeric_limits<double>::infinity();
        const Square& square = squareAt(place.x(), place.y());
        if (std::min(ray.pointAt(begin).z(), ray.pointAt(std::min(end, to)).z()) > square.top) continue;
        for (uint32_t index : square.bodies) {
            const Body& body = _bodies[index];
            const Vec3 way = body.center - ray.origin();
            const double nearest = way.dot(ray.direction());
            const double chord = body.radius * body.radius - way.squaredNorm() + nearest * nearest;
            // Several squares list a body; the one where the ray is nearest to its middle counts.
            if (chord <= 0 || std::max(nearest, from) < begin || nearest >= end) continue;
            Passage passage{nearest - std::sqrt(chord), nearest + std::sqrt(chord), Vec3::Zero()};
            for (const Face& face : body.faces) {
                const double slope = face.normal().dot(ray.direction());
                const double distance = -face.signedDistance(ray.origin()) / slope;
                if (slope >= 0) {
                    passage.leave = std::min(passage.leave, distance);
                } else if (distance > passage.enter) {
                    passage.enter = distance;
                    passage.normal = face.normal();
                }
            }
            if (passage.enter < passage.leave) visit(body, passage);
        }
    }
}

} // namespace VelBrx::Sample
