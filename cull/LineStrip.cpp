#include "cull/LineStrip.h"

#include <algorithm>
#include <cmath>

LineStrip::LineStrip(const std::vector<osg::Vec2d>& line, double width, int windowWidth, int windowHeight)
    : _halfWidth(width / 2), _width(windowWidth), _height(windowHeight),
      _columns((windowWidth + kTile - 1) / kTile), _rows((windowHeight + kTile - 1) / kTile),
      _tiles(nullptr, 0, 0)
{
    if (!(width > 0) || !std::isfinite(width) || windowWidth < 1 || windowHeight < 1) return;
    addSegments(line);
    if (!isEmpty()) enterSegments();
}

void LineStrip::addSegments(const std::vector<osg::Vec2d>& line)
{
    // Beyond this, differences of coordinates lose the window's pixels.
    constexpr double kFarthest = 1e12;
    for (const osg::Vec2d& vertex : line)
        if (!(std::abs(vertex.x()) <= kFarthest && std::abs(vertex.y()) <= kFarthest)) return;

    for (size_t i = 1; i < line.size(); ++i) {
        const osg::Vec2d along = line[i] - line[i - 1];
        if (along.length2() > 0) _segments.push_back({line[i - 1], along, along.length2(), false, false});
    }
    if (isEmpty()) return;
    _segments.front().isFirst = true;
    _segments.back().isLast = true;
}

int LineStrip::tileOf(double pixel, int tiles) const
{
    return static_cast<int>(std::clamp(std::floor(pixel / kTile), 0.0, tiles - 1.0));
}

/// Calls `visit(tile)` for every tile that the segment, with its width, may touch.
template <class Visit>
void LineStrip::forEachTile(const Segment& segment, Visit visit) const
{
    constexpr double kPixel = 1; // more than rounding far away loses
    const double reach = _halfWidth + kPixel;
    const osg::Vec2d to = segment.from + segment.along;
    const double low = std::min(segment.from.y(), to.y()) - reach;
    const double high = std::max(segment.from.y(), to.y()) + reach;
    if (high < 0 || low > _height) return;
    const int lastRow = tileOf(high, _rows);
    for (int row = tileOf(low, _rows); row <= lastRow; ++row) {
        // The part of the segment that is near enough to the row of tiles.
        double begin = 0;
        double end = 1;
        if (segment.along.y() != 0) {
            const double a = (row * kTile - reach - segment.from.y()) / segment.along.y();
            const double b = ((row + 1) * kTile + reach - segment.from.y()) / segment.along.y();
            begin = std::clamp(std::min(a, b), 0.0, 1.0);
            end = std::clamp(std::max(a, b), 0.0, 1.0);
        }
        const double x1 = segment.from.x() + begin * segment.along.x();
        const double x2 = segment.from.x() + end * segment.along.x();
        const double left = std::min(x1, x2) - reach;
        const double right = std::max(x1, x2) + reach;
        if (right < 0 || left > _width) continue;
        const int lastColumn = tileOf(right, _columns);
        for (int column = tileOf(left, _columns); column <= lastColumn; ++column)
            visit(static_cast<size_t>(row) * _columns + column);
    }
}

void LineStrip::enterSegments()
{
    _begins.assign(static_cast<size_t>(_columns) * _rows + 1, 0);
    for (const Segment& segment : _segments)
        forEachTile(segment, [&](size_t tile) { ++_begins[tile + 1]; });

    const osg::ref_ptr<osg::Image> touched = new osg::Image;
    touched->allocateImage(_columns, _rows, 1, GL_LUMINANCE, GL_UNSIGNED_BYTE);
    for (int row = 0; row < _rows; ++row)
        for (int column = 0; column < _columns; ++column) {
            const size_t tile = static_cast<size_t>(row) * _columns + column;
            *touched->data(column, _rows - 1 - row) = _begins[tile + 1] > 0;
            _begins[tile + 1] += _begins[tile];
        }
    _tiles = ScreenMask(osg::ref_ptr<const osg::Image>(touched), _columns, _rows);

    _entered.resize(_begins.back());
    std::vector<uint32_t> next = _begins;
    for (uint32_t i = 0; i < _segments.size(); ++i)
        forEachTile(_segments[i], [&](size_t tile) { _entered[next[tile]++] = i; });
}

bool LineStrip::covers(const Segment& segment, const osg::Vec2d& place) const
{
    const osg::Vec2d way = place - segment.from;
    const double share = way * segment.along / segment.length2;
    if ((share < 0 && segment.isFirst) || (share > 1 && segment.isLast)) return false;
    return (way - segment.along * std::clamp(share, 0.0, 1.0)).length2() <= _halfWidth * _halfWidth;
}

bool LineStrip::covers(const osg::Vec2d& place) const
{
    if (isEmpty() || !(place.x() >= 0 && place.x() <= _width && place.y() >= 0 && place.y() <= _height))
        return false;
    const size_t tile =
        static_cast<size_t>(tileOf(place.y(), _rows)) * _columns + tileOf(place.x(), _columns);
    return std::any_of(_entered.begin() + _begins[tile], _entered.begin() + _begins[tile + 1],
                       [&](uint32_t i) { return covers(_segments[i], place); });
}
