#include "store/sample/Scene.h"

namespace VelBrx::Sample {

namespace {

constexpr double kOutside = 64; ///< the squares reach this far outside the landscape

} // namespace

Scene::Scene(const Landscape& landscape)
    : _landscape(landscape), _width(static_cast<int64_t>((landscape.size() + 2 * kOutside) / kSquare) + 1),
      _squares(static_cast<size_t>(_width * _width))
{
}

int64_t Scene::lineAt(double coordinate) const
{
    return std::clamp<int64_t>(static_cast<int64_t>((coordinate + kOutside) / kSquare), 0, _width - 1);
}

const Scene::Square& Scene::squareAt(double x, double y) const
{
    return _squares[static_cast<size_t>(lineAt(y) * _width + lineAt(x))];
}

void Scene::add(const Body& body)
{
    const double x = body.center.x(), y = body.center.y(), top = body.center.z() + body.radius;
    for (int64_t row = lineAt(y - body.radius); row <= lineAt(y + body.radius); ++row)
        for (int64_t column = lineAt(x - body.radius); column <= lineAt(x + body.radius); ++column) {
            Square& square = _squares[static_cast<size_t>(row * _width + column)];
            square.bodies.push_back(static_cast<uint32_t>(_bodies.size()));
            square.top = std::max(square.top, top);
        }
    _bodies.push_back(body);
}

void Scene::addSolid(const Eigen::Affine3d& frame, const std::vector<std::array<double, 4>>& faces,
                     const Matter& matter, const Color& color, const Color& top)
{
    Body body{frame.translation(), frame.linear().norm(), &matter, color, top, {}};
    for (const auto& [x, y, z, offset] : faces) {
        body.faces.emplace_back(Vec3(x, y, z), -offset);
        body.faces.back().transform(frame).normalize();
    }
    add(body);
}

bool Scene::isBuiltUp(double x, double y) const
{
    const std::vector<uint32_t>& bodies = squareAt(x, y).bodies;
    return std::any_of(bodies.begin(), bodies.end(), [&](uint32_t index) {
        const Body& body = _bodies[index];
        return body.matter->pointClass != kPlant &&
               std::hypot(x - body.center.x(), y - body.center.y()) < body.radius;
    });
}

} // namespace VelBrx::Sample
