#pragma once

#include <osg/Vec2d>

#include <cstdint>
#include <vector>

/// The inside of a polygon by the even-odd rule, for many places. It is closed implicitly and may cross
/// itself; with fewer than three vertices it contains nothing. A place on an edge belongs to the side with
/// larger x, or with larger y where the edge runs along x, whichever way the edge is walked.
///
/// A grid over the polygon's bounds answers for all places but those in fields that an edge runs through;
/// these are compared with the edges of their row. Constant after construction; any number of threads may use
/// it.
class PolygonArea
{
public:
    /// How much of a rectangle is inside.
    enum class Cover : uint8_t
    {
        NONE,
        ALL,
        SOME ///< or it is not known
    };

    /// Vertices are finite, and so are products of their differences.
    explicit PolygonArea(const std::vector<osg::Vec2d>& polygon);

    /// Writes a byte for each of RecordBlock::kSize places: 1 inside, else 0. NaN is outside.
    void test(const double* x, const double* y, uint8_t* inside) const;

    /// Of the rectangle between two corners, borders included.
    Cover cover(const osg::Vec2d& low, const osg::Vec2d& high) const;

private:
    struct Edge
    {
        osg::Vec2d low; ///< the end with smaller y
        osg::Vec2d high;

        double crossingAt(double y) const;
    };

    /// The grid's fields along x or y.
    struct Axis
    {
        double low = 0;
        double high = 0;
        double perUnit = 0; ///< fields; 0 where the bounds have no extent
        double slack = 0;   ///< in fields: more than rounding moves a place
        int count = 1;

        void divide(int fields);
        int fieldAt(double field) const;
        int firstAt(double place) const { return fieldAt((place - low) * perUnit - slack); }
        int lastAt(double place) const { return fieldAt((place - low) * perUnit + slack); }
        double border(double field) const;
    };

    /// Neighbours in a row that edges run through: in this row an edge that runs through one of
    /// them runs through no others. The field to the right of them is all inside or all outside.
    struct Run
    {
        uint32_t firstEdge = 0; ///< in `_runEdges`
        uint32_t edgeCount = 0;
        bool isInsideBehind = false;
    };

    /// An edge in a row.
    struct Passage
    {
        uint32_t edge;
        int firstColumn;
        int lastColumn;
    };

    /// `kOutside`, `kInside`, or from `kRuns` on the run of the row that the field is in.
    using Field = uint16_t;
    static constexpr Field kOutside = 0;
    static constexpr Field kInside = 1;
    static constexpr Field kRuns = 2;

    void divide();
    uint64_t edgesInRows() const;
    Passage passage(uint32_t edge, int row) const;
    void fillRow(int row, const std::vector<Passage>& passages);
    void addRuns(Field* fields, const std::vector<Passage>& passages);
    static Cover coverOf(Field field);
    void lookUp(const double* x, const double* y, int32_t* places) const;
    bool isInside(double x, double y, int32_t place) const;

    std::vector<Edge> _edges;
    Axis _x;
    Axis _y;
    std::vector<Field> _fields;       ///< rows from the smallest y, and one more for all beyond the bounds
    std::vector<uint32_t> _firstRuns; ///< of each row, in `_runs`
    std::vector<Run> _runs;
    std::vector<Edge> _runEdges;
};
