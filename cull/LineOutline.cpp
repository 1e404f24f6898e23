#include <VelOsgDBBrx/LineEnHancement.h>

#include <algorithm>

namespace VelOsgDBBrx {

namespace {

constexpr double kMiterLimit = 4; ///< half widths; a sharper bend is cut

/// Unit vector to the left of the way from `a` to `b`.
osg::Vec2d leftOf(const osg::Vec2d& a, const osg::Vec2d& b)
{
    osg::Vec2d left(a.y() - b.y(), b.x() - a.x());
    left.normalize();
    return left;
}

/// From a vertex to the left side of a line that bends there, for a line of half width 1.
osg::Vec2d miter(const osg::Vec2d& leftBefore, const osg::Vec2d& leftAfter)
{
    osg::Vec2d direction = leftBefore + leftAfter;
    if (direction.normalize() == 0) return leftAfter;
    return direction * std::min(1 / (direction * leftAfter), kMiterLimit);
}

} // namespace

std::vector<osg::Vec2f> LineEnHancement::outline(const std::vector<osg::Vec2d>& polyline, double width)
{
    std::vector<osg::Vec2d> line = polyline;
    line.erase(std::unique(line.begin(), line.end()), line.end());
    if (line.size() < 2 || !(width > 0)) return {};

    std::vector<osg::Vec2f> left;
    std::vector<osg::Vec2f> right;
    for (size_t i = 0; i < line.size(); ++i) {
        const osg::Vec2d before = leftOf(line[i == 0 ? 0 : i - 1], line[i == 0 ? 1 : i]);
        const osg::Vec2d after = i + 1 == line.size() ? before : leftOf(line[i], line[i + 1]);
        const osg::Vec2d side = miter(before, after) * (width / 2);
        left.push_back(line[i] + side);
        right.push_back(line[i] - side);
    }
    left.insert(left.end(), right.rbegin(), right.rend());
    return left;
}

} // namespace VelOsgDBBrx
