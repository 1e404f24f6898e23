#include "viewer/tool/StrokeOutline.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

/// Pixels that a stroke covers, with an empty border.
class Raster
{
public:
    Raster(const std::vector<osg::Vec2d>& way, double radius)
    {
        osg::Vec2d low = way.front();
        osg::Vec2d high = low;
        for (const osg::Vec2d& place : way)
            for (int axis : {0, 1}) {
                low[axis] = std::min(low[axis], place[axis]);
                high[axis] = std::max(high[axis], place[axis]);
            }
        for (int axis : {0, 1})
            _corner[axis] = std::floor(low[axis] - radius) - 1;
        _columns = static_cast<int>(std::ceil(high.x() + radius) - _corner.x()) + 2;
        _rows = static_cast<int>(std::ceil(high.y() + radius) - _corner.y()) + 2;
        _covered.resize(static_cast<size_t>(_columns) * static_cast<size_t>(_rows));
        for (size_t i = 0; i < way.size(); ++i)
            cover(way[i > 0 ? i - 1 : 0] - _corner, way[i] - _corner, radius);
    }

    /// Each edge of a covered pixel with one that is not, with the covered one on the same side all along:
    /// loops.
    std::vector<std::vector<osg::Vec2d>> outlines()
    {
        std::vector<std::vector<osg::Vec2d>> loops;
        std::vector<uint8_t> walked(_covered.size());
        for (int y = 1; y < _rows; ++y)
            for (int x = 0; x < _columns; ++x)
                if (isCovered(x, y) && !isCovered(x, y - 1) && !walked[at(x, y)])
                    loops.push_back(walk(x, y, walked));
        return loops;
    }

private:
    size_t at(int x, int y) const { return static_cast<size_t>(y) * static_cast<size_t>(_columns) + x; }
    bool isCovered(int x, int y) const { return _covered[at(x, y)]; }

    void cover(const osg::Vec2d& a, const osg::Vec2d& b, double radius)
    {
        const osg::Vec2d along = b - a;
        const double square = along.length2();
        const int firstRow = static_cast<int>(std::min(a.y(), b.y()) - radius);
        const int lastRow = static_cast<int>(std::max(a.y(), b.y()) + radius);
        const int firstColumn = static_cast<int>(std::min(a.x(), b.x()) - radius);
        const int lastColumn = static_cast<int>(std::max(a.x(), b.x()) + radius);
        for (int y = firstRow; y <= lastRow; ++y)
            for (int x = firstColumn; x <= lastColumn; ++x) {
                const osg::Vec2d middle(x + 0.5, y + 0.5);
                const double t = square > 0 ? std::clamp((middle - a) * along / square, 0.0, 1.0) : 0.0;
                if ((middle - a - along * t).length2() <= radius * radius) _covered[at(x, y)] = 1;
            }
    }

    /// Walks along covered pixels, which are to the right, from the upper edge of one.
    std::vector<osg::Vec2d> walk(int column, int row, std::vector<uint8_t>& walked)
    {
        constexpr int kTo[4][2] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}}; // right, down, left, up
        std::vector<osg::Vec2d> loop;
        int x = column;
        int y = row;
        int way = 0;
        do {
            // The pixels ahead of corner (x, y), left and right of the way.
            if (way == 0) walked[at(x, y)] = 1;
            x += kTo[way][0];
            y += kTo[way][1];
            const auto ahead = [&](bool isRight) {
                const int dx = way == 0 ? 0 : way == 2 ? -1 : (way == 1) == isRight ? -1 : 0;
                const int dy = way == 1 ? 0 : way == 3 ? -1 : (way == 0) == isRight ? 0 : -1;
                return isCovered(x + dx, y + dy);
            };
            const int before = way;
            if (ahead(false) && ahead(true))
                way = (way + 3) % 4;
            else if (!ahead(true))
                way = (way + 1) % 4;
            if (way != before) loop.push_back(_corner + osg::Vec2d(x, y));
        } while (x != column || y != row || way != 0);
        return loop;
    }

    osg::Vec2d _corner;
    int _columns = 0;
    int _rows = 0;
    std::vector<uint8_t> _covered;
};

} // namespace

std::vector<osg::Vec2d> strokeOutline(const std::vector<osg::Vec2d>& way, double radius)
{
    std::vector<osg::Vec2d> outline;
    for (const std::vector<osg::Vec2d>& loop : Raster(way, radius).outlines()) {
        const bool isFirst = outline.empty();
        outline.insert(outline.end(), loop.begin(), loop.end());
        outline.push_back(loop.front());
        if (!isFirst) outline.push_back(outline.front());
    }
    return outline;
}
