#include "viewer/edit/ScreenLine.h"

#include <osg/Vec3d>

#include <algorithm>
#include <cmath>
#include <limits>

using VelOsgDBBrx::LineEnHancement;
using Polyline = std::vector<osg::Vec2d>;

namespace {

constexpr double kStretch = 16;       ///< pixels of the line that have one depth
constexpr size_t kEnoughHits = 20000; ///< to find these depths

/// Points at even distances along a line, both ends included.
Polyline stretchesOf(const Polyline& line)
{
    Polyline places = {line.front()};
    for (size_t i = 1; i < line.size(); ++i) {
        const osg::Vec2d way = line[i] - line[i - 1];
        const int parts = std::max(1, static_cast<int>(std::ceil(way.length() / kStretch)));
        for (int part = 1; part <= parts; ++part)
            places.push_back(line[i - 1] + way * (static_cast<double>(part) / parts));
    }
    return places;
}

size_t nearest(const Polyline& places, const osg::Vec2d& point)
{
    const auto closer = [&](const osg::Vec2d& a, const osg::Vec2d& b) {
        return (a - point).length2() < (b - point).length2();
    };
    return static_cast<size_t>(std::min_element(places.begin(), places.end(), closer) - places.begin());
}

osg::Vec2d toWorld(const osg::Vec2d& window, double depth, const osg::Matrixd& windowToWorld)
{
    const osg::Vec3d world = osg::Vec3d(window.x(), window.y(), depth) * windowToWorld;
    return osg::Vec2d(world.x(), world.y());
}

} // namespace

std::vector<osg::Vec2f> outlineInWorld(const Polyline& line, double width,
                                       const std::vector<LineEnHancement::LineEnHancementPoint>& hits,
                                       const osg::Matrixd& windowToWorld)
{
    if (line.size() < 2) return {};
    const Polyline places = stretchesOf(line);
    std::vector<std::vector<double>> depths(places.size());
    for (size_t i = 0; i < hits.size(); i += 1 + hits.size() / kEnoughHits)
        depths[nearest(places, osg::Vec2d(hits[i].x, hits[i].y))].push_back(hits[i].depth);

    Polyline world;
    double metresPerPixel = 0;
    for (size_t i = 0; i < places.size(); ++i) {
        if (depths[i].empty()) continue;
        const auto middle = depths[i].begin() + static_cast<ptrdiff_t>(depths[i].size() / 2);
        std::nth_element(depths[i].begin(), middle, depths[i].end());
        world.push_back(toWorld(places[i], *middle, windowToWorld));
        for (const osg::Vec2d& side : {osg::Vec2d(1, 0), osg::Vec2d(0, 1)}) {
            const osg::Vec2d beside = toWorld(places[i] + side, *middle, windowToWorld);
            metresPerPixel = std::max(metresPerPixel, (beside - world.back()).length());
        }
    }
    return LineEnHancement::outline(world, width * metresPerPixel);
}

std::vector<osg::Vec2f> outlineInStrip(const std::vector<osg::Vec4d>& planes,
                                       const std::vector<LineEnHancement::LineEnHancementPoint>& hits,
                                       const osg::Matrixd& windowToWorld)
{
    if (hits.empty() || planes.size() != 2) return {};
    const osg::Vec2d across(planes[0].x(), planes[0].y());
    const osg::Vec2d along(-across.y(), across.x());
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();
    for (const LineEnHancement::LineEnHancementPoint& hit : hits) {
        const double place = toWorld(osg::Vec2d(hit.x, hit.y), hit.depth, windowToWorld) * along;
        low = std::min(low, place);
        high = std::max(high, place);
    }
    const double near = -planes[0].w();
    const double far = planes[1].w();
    const auto corner = [&](double place, double way) { return osg::Vec2f(along * place + across * way); };
    return {corner(low, near), corner(high, near), corner(high, far), corner(low, far)};
}
