#include "edit/PolygonArea.h"

#include "edit/RecordBlock.h"

#include <cfloat>
#include <cmath>

namespace {

constexpr int kBlock = RecordBlock::kSize;
constexpr int kFewestFields = 128; ///< along an axis
constexpr int kMostFields = 1024;  ///< a field a byte: the grid stays in the processor's cache
constexpr uint64_t kMostInRows = uint64_t{1} << 25;

} // namespace

double PolygonArea::Edge::crossingAt(double y) const
{
    return (high.x() - low.x()) * (y - low.y()) / (high.y() - low.y()) + low.x();
}

void PolygonArea::Axis::divide(int fields)
{
    const double fieldsPerUnit = fields / (high - low);
    const bool hasExtent = high > low && std::isfinite(fieldsPerUnit);
    count = hasExtent ? fields : 1;
    perUnit = hasExtent ? fieldsPerUnit : 0;
    slack = 1e-6 + 16 * DBL_EPSILON * std::max(std::abs(low), std::abs(high)) * perUnit;
}

int PolygonArea::Axis::fieldAt(double field) const
{
    return field > 0 ? (field < count ? static_cast<int>(field) : count - 1) : 0;
}

double PolygonArea::Axis::border(double field) const
{
    if (perUnit > 0) return low + field / perUnit;
    return field > 0 ? high : low;
}

PolygonArea::PolygonArea(const std::vector<osg::Vec2d>& polygon)
{
    for (size_t i = 0; i < polygon.size(); ++i) {
        const osg::Vec2d& a = polygon[i];
        const osg::Vec2d& b = polygon[i + 1 < polygon.size() ? i + 1 : 0];
        _edges.push_back(a.y() < b.y() || (a.y() == b.y() && a.x() < b.x()) ? Edge{a, b} : Edge{b, a});
        _x.low = i ? std::min(_x.low, a.x()) : a.x();
        _x.high = i ? std::max(_x.high, a.x()) : a.x();
        _y.low = i ? std::min(_y.low, a.y()) : a.y();
        _y.high = i ? std::max(_y.high, a.y()) : a.y();
    }
    divide();
    _fields.resize(static_cast<size_t>(_x.count) * _y.count + 1, Cover::NONE);
    _rows.resize(_y.count);
    for (uint32_t edge = 0; edge < _edges.size(); ++edge)
        markEdge(edge);
    for (int row = 0; row < _y.count; ++row)
        fillRow(row);
}

/// The more edges, the finer the grid; fewer rows where many edges run through many of them.
void PolygonArea::divide()
{
    const int fields = std::clamp(static_cast<int>(16 * std::sqrt(static_cast<double>(_edges.size()))),
                                  kFewestFields, kMostFields);
    _x.divide(fields);
    _y.divide(fields);
    for (int rows = fields / 2; rows >= 1 && edgesInRows() > kMostInRows; rows /= 2)
        _y.divide(rows);
}

uint64_t PolygonArea::edgesInRows() const
{
    uint64_t sum = 0;
    for (const Edge& edge : _edges)
        sum += static_cast<uint64_t>(_y.lastAt(edge.high.y()) - _y.firstAt(edge.low.y()) + 1);
    return sum;
}

/// Marks the fields that the edge runs through or may, and lists it in their rows.
void PolygonArea::markEdge(uint32_t index)
{
    const Edge& edge = _edges[index];
    const bool isLevel = edge.low.y() == edge.high.y();
    const auto [left, right] = std::minmax({edge.low.x(), edge.high.x()});
    for (int row = _y.firstAt(edge.low.y()), last = _y.lastAt(edge.high.y()); row <= last; ++row) {
        double from = left;
        double to = right;
        if (!isLevel) {
            const double lower = std::max(edge.low.y(), _y.border(row - _y.slack));
            const double upper = std::min(edge.high.y(), _y.border(row + 1 + _y.slack));
            const auto [a, b] = std::minmax({edge.crossingAt(lower), edge.crossingAt(upper)});
            from = std::max(from, a);
            to = std::min(to, b);
        }
        for (int column = _x.firstAt(from), end = _x.lastAt(to); column <= end; ++column)
            field(column, row) = Cover::SOME;
        _rows[row].push_back(index);
    }
}

/// Decides the fields that no edge runs through by their middles.
void PolygonArea::fillRow(int row)
{
    const double y = _y.border(row + 0.5);
    std::vector<double> crossings;
    for (const uint32_t edge : _rows[row])
        if ((_edges[edge].low.y() > y) != (_edges[edge].high.y() > y))
            crossings.push_back(_edges[edge].crossingAt(y));
    std::sort(crossings.begin(), crossings.end());
    size_t passed = 0;
    for (int column = 0; column < _x.count; ++column) {
        const double x = _x.border(column + 0.5);
        while (passed < crossings.size() && crossings[passed] <= x)
            ++passed;
        if (field(column, row) == Cover::NONE && (crossings.size() - passed) % 2)
            field(column, row) = Cover::ALL;
    }
}

/// The places of the fields that the points are in.
VELBRX_VECTOR_CLONES
void PolygonArea::lookUp(const double* x, const double* y, int32_t* fields) const
{
    const Axis columns = _x;
    const Axis rows = _y;
    const double lastColumn = columns.count - 1;
    const double lastRow = rows.count - 1;
    const int32_t pitch = columns.count;
    const int32_t beyond = columns.count * rows.count;
    for (int i = 0; i < kBlock; ++i) {
        const bool in =
            (x[i] >= columns.low) & (x[i] <= columns.high) & (y[i] >= rows.low) & (y[i] <= rows.high);
        const double column = std::min((x[i] - columns.low) * columns.perUnit, lastColumn);
        const double row = std::min((y[i] - rows.low) * rows.perUnit, lastRow);
        const int32_t place =
            static_cast<int32_t>(in ? row : 0.0) * pitch + static_cast<int32_t>(in ? column : 0.0);
        fields[i] = in ? place : beyond;
    }
}

void PolygonArea::test(const double* x, const double* y, uint8_t* inside) const
{
    int32_t fields[kBlock];
    lookUp(x, y, fields);
    bool isOpen = false;
    for (int i = 0; i < kBlock; ++i) {
        const Cover cover = _fields[fields[i]];
        inside[i] = static_cast<uint8_t>(cover);
        isOpen |= cover == Cover::SOME;
    }
    if (!isOpen) return;
    for (int i = 0; i < kBlock; ++i)
        if (inside[i] == static_cast<uint8_t>(Cover::SOME))
            inside[i] = isInside(x[i], y[i], fields[i] / _x.count);
}

bool PolygonArea::isInside(double x, double y, int row) const
{
    bool odd = false;
    for (const uint32_t index : _rows[row]) {
        const Edge& edge = _edges[index];
        if (edge.low.y() <= y && y < edge.high.y() && x < edge.crossingAt(y)) odd = !odd;
    }
    return odd;
}

PolygonArea::Cover PolygonArea::cover(const osg::Vec2d& low, const osg::Vec2d& high) const
{
    const bool meets = low.x() <= _x.high && high.x() >= _x.low && low.y() <= _y.high && high.y() >= _y.low;
    if (!meets) return Cover::NONE;
    const bool leaves = low.x() < _x.low || high.x() > _x.high || low.y() < _y.low || high.y() > _y.high;
    const int left = _x.firstAt(low.x());
    const int right = _x.lastAt(high.x());
    const Cover first = _fields[static_cast<size_t>(_y.firstAt(low.y())) * _x.count + left];
    if (first == Cover::SOME || (leaves && first == Cover::ALL)) return Cover::SOME;
    for (int row = _y.firstAt(low.y()), last = _y.lastAt(high.y()); row <= last; ++row) {
        const auto fields = _fields.begin() + static_cast<ptrdiff_t>(row) * _x.count;
        if (std::any_of(fields + left, fields + right + 1, [first](Cover f) { return f != first; }))
            return Cover::SOME;
    }
    return first;
}
