#pragma once

#include "edit/ScreenMask.h"

#include <osg/Vec2d>

#include <cstdint>
#include <vector>

/// What a polyline of some width covers of a window: everything within half the width of it, cut off square
/// at its two ends, round at its bends. Window coordinates are pixels with y up. Its cost grows with
/// the window's tiles that it touches, however far its vertices lie outside. Constant after construction.
class LineStrip
{
public:
    /// Pixels on a side of a tile.
    static constexpr int kTile = 16;

    /// Empty, so that nothing is covered, without two different vertices, with a vertex that is not finite or
    /// further than 1e12 pixels away, with a width that is not above 0, or a window without pixels.
    LineStrip(const std::vector<osg::Vec2d>& line, double width, int windowWidth, int windowHeight);

    bool isEmpty() const { return _segments.empty(); }

    /// Tiles of the window that may have a part of the strip, one a pixel, rows from the top. The grid begins
    /// at the window's bottom left.
    const ScreenMask& tiles() const { return _tiles; }

    /// Whether the place lies in the window and under the strip.
    bool covers(const osg::Vec2d& place) const;

private:
    struct Segment
    {
        osg::Vec2d from;
        osg::Vec2d along;
        double length2;
        bool isFirst;
        bool isLast;
    };

    void addSegments(const std::vector<osg::Vec2d>& line);
    void enterSegments();
    template <class Visit>
    void forEachTile(const Segment& segment, Visit visit) const;
    bool covers(const Segment& segment, const osg::Vec2d& place) const;
    int tileOf(double pixel, int tiles) const;

    double _halfWidth;
    int _width;
    int _height;
    int _columns;
    int _rows;
    std::vector<Segment> _segments;
    std::vector<uint32_t> _begins;  ///< of each tile, from the bottom left: its first place in `_entered`
    std::vector<uint32_t> _entered; ///< the segments that may cover a part of a tile, tile after tile
    ScreenMask _tiles;
};
