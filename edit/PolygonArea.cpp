#include "edit/PolygonArea.h"

#include "edit/RecordBlock.h"

#include <cfloat>
#include <cmath>
#include <utility>

namespace {

constexpr int kBlock = RecordBlock::kSize;
constexpr int kFewestFields = 256; ///< along an axis
constexpr int kMostFields = 1024;  ///< the grid stays in the processor's cache, and numbers of runs are small
constexpr uint64_t kMostInRows = uint64_t{1} << 22;

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
    std::vector<std::vector<Passage>> rows(_y.count);
    for (uint32_t edge = 0; edge < _edges.size(); ++edge)
        for (int row = _y.firstAt(_edges[edge].low.y()), last = _y.lastAt(_edges[edge].high.y()); row <= last;
             ++row)
            rows[row].push_back(passage(edge, row));
    _fields.resize(static_cast<size_t>(_x.count) * _y.count + 1, kOutside);
    for (int row = 0; row < _y.count; ++row)
        fillRow(row, rows[row]);
}

/// The more edges, the finer the grid; fewer rows where many edges run through many of them.
void PolygonArea::divide()
{
    const int fields = std::clamp(static_cast<int>(32 * std::sqrt(static_cast<double>(_edges.size()))),
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

/// The columns where the edge runs through the row, or may.
PolygonArea::Passage PolygonArea::passage(uint32_t index, int row) const
{
    const Edge& edge = _edges[index];
    const auto [left, right] = std::minmax({edge.low.x(), edge.high.x()});
    if (edge.low.y() == edge.high.y()) return {index, _x.firstAt(left), _x.lastAt(right)};
    const double lower = std::max(edge.low.y(), _y.border(row - _y.slack));
    const double upper = std::min(edge.high.y(), _y.border(row + 1 + _y.slack));
    const auto [from, to] = std::minmax(
        {std::clamp(edge.crossingAt(lower), left, right), std::clamp(edge.crossingAt(upper), left, right)});
    return {index, _x.firstAt(from), _x.lastAt(to)};
}

/// Decides the fields that no edge runs through by their middles, and makes runs of the others.
void PolygonArea::fillRow(int row, const std::vector<Passage>& passages)
{
    Field* fields = &_fields[static_cast<size_t>(row) * _x.count];
    const double y = _y.border(row + 0.5);
    std::vector<double> crossings;
    for (const Passage& passage : passages) {
        const Edge& edge = _edges[passage.edge];
        if (edge.low.y() <= y && y < edge.high.y()) crossings.push_back(edge.crossingAt(y));
        std::fill(fields + passage.firstColumn, fields + passage.lastColumn + 1, kRuns);
    }
    std::sort(crossings.begin(), crossings.end());
    size_t passed = 0;
    for (int column = 0; column < _x.count; ++column) {
        const double x = _x.border(column + 0.5);
        while (passed < crossings.size() && crossings[passed] <= x)
            ++passed;
        if (fields[column] != kRuns) fields[column] = (crossings.size() - passed) % 2 ? kInside : kOutside;
    }
    addRuns(fields, passages);
}

/// Numbers the runs of a row, and sorts its edges by them.
void PolygonArea::addRuns(Field* fields, const std::vector<Passage>& passages)
{
    const size_t firstRun = _runs.size();
    _firstRuns.push_back(static_cast<uint32_t>(firstRun));
    for (int column = 0; column < _x.count; ++column) {
        if (fields[column] < kRuns) continue;
        if (column == 0 || fields[column - 1] < kRuns) _runs.emplace_back();
        fields[column] = static_cast<Field>(kRuns + _runs.size() - 1 - firstRun);
        _runs.back().isInsideBehind = column + 1 < _x.count && fields[column + 1] == kInside;
    }
    const auto runOf = [&](const Passage& passage) -> Run& {
        return _runs[firstRun + fields[passage.firstColumn] - kRuns];
    };
    for (const Passage& passage : passages)
        ++runOf(passage).edgeCount;
    auto first = static_cast<uint32_t>(_runEdges.size());
    _runEdges.resize(_runEdges.size() + passages.size());
    for (size_t run = firstRun; run < _runs.size(); ++run) {
        _runs[run].firstEdge = first;
        first += std::exchange(_runs[run].edgeCount, 0);
    }
    for (const Passage& passage : passages) {
        Run& run = runOf(passage);
        _runEdges[run.firstEdge + run.edgeCount++] = _edges[passage.edge];
    }
}

/// Where in the grid the fields are that the points are in.
VELBRX_VECTOR_CLONES
void PolygonArea::lookUp(const double* x, const double* y, int32_t* places) const
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
        places[i] = in ? place : beyond;
    }
}

void PolygonArea::test(const double* x, const double* y, uint8_t* inside) const
{
    int32_t places[kBlock];
    lookUp(x, y, places);
    const Field* fields = _fields.data();
    int open[kBlock];
    int openCount = 0;
    for (int i = 0; i < kBlock; ++i) {
        const Field field = fields[places[i]];
        inside[i] = field == kInside;
        open[openCount] = i;
        openCount += field >= kRuns;
    }
    for (int k = 0; k < openCount; ++k) {
        const int i = open[k];
        inside[i] = isInside(x[i], y[i], places[i]);
    }
}

bool PolygonArea::isInside(double x, double y, int32_t place) const
{
    const Run& run = _runs[_firstRuns[place / _x.count] + _fields[place] - kRuns];
    const Edge* edges = &_runEdges[run.firstEdge];
    bool odd = run.isInsideBehind;
    for (uint32_t i = 0; i < run.edgeCount; ++i)
        if (edges[i].low.y() <= y && y < edges[i].high.y() && x < edges[i].crossingAt(y)) odd = !odd;
    return odd;
}

PolygonArea::Cover PolygonArea::coverOf(Field field)
{
    return field == kOutside ? Cover::NONE : field == kInside ? Cover::ALL : Cover::SOME;
}

PolygonArea::Cover PolygonArea::cover(const osg::Vec2d& low, const osg::Vec2d& high) const
{
    const bool meets = low.x() <= _x.high && high.x() >= _x.low && low.y() <= _y.high && high.y() >= _y.low;
    if (!meets) return Cover::NONE;
    const int left = _x.firstAt(low.x());
    const int right = _x.lastAt(high.x());
    const int bottom = _y.firstAt(low.y());
    const Field first = _fields[static_cast<size_t>(bottom) * _x.count + left];
    for (int row = bottom, top = _y.lastAt(high.y()); first < kRuns && row <= top; ++row) {
        const auto fields = _fields.begin() + static_cast<ptrdiff_t>(row) * _x.count;
        if (std::any_of(fields + left, fields + right + 1, [first](Field f) { return f != first; }))
            return Cover::SOME;
    }
    return coverOf(first);
}
