#include "viewer/tool/Simplify.h"

#include <algorithm>
#include <utility>

namespace {

double squaredDistance(const osg::Vec2d& p, const osg::Vec2d& a, const osg::Vec2d& b)
{
    const osg::Vec2d along = b - a;
    const double square = along.length2();
    const double t = square > 0 ? std::clamp((p - a) * along / square, 0.0, 1.0) : 0.0;
    return (p - a - along * t).length2();
}

/// Keeps the vertex farthest from each stretch that is off by more than the tolerance.
std::vector<osg::Vec2d> withinTolerance(const std::vector<osg::Vec2d>& line, double tolerance)
{
    std::vector<char> kept(line.size(), 0);
    kept.front() = kept.back() = 1;
    std::vector<std::pair<size_t, size_t>> stretches = {{0, line.size() - 1}};
    while (!stretches.empty()) {
        const auto [first, last] = stretches.back();
        stretches.pop_back();
        double most = tolerance * tolerance;
        size_t farthest = first;
        for (size_t i = first + 1; i < last; ++i) {
            const double square = squaredDistance(line[i], line[first], line[last]);
            if (square <= most) continue;
            most = square;
            farthest = i;
        }
        if (farthest == first) continue;
        kept[farthest] = 1;
        stretches.emplace_back(first, farthest);
        stretches.emplace_back(farthest, last);
    }
    std::vector<osg::Vec2d> simple;
    for (size_t i = 0; i < line.size(); ++i)
        if (kept[i]) simple.push_back(line[i]);
    return simple;
}

} // namespace

std::vector<osg::Vec2d> simplified(const std::vector<osg::Vec2d>& line, double tolerance, size_t most)
{
    if (line.size() < 3) return line;
    std::vector<osg::Vec2d> simple = withinTolerance(line, tolerance);
    while (simple.size() > std::max<size_t>(most, 2))
        simple = withinTolerance(line, tolerance *= 1.5);
    return simple;
}
