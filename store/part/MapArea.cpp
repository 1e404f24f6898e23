#include "store/part/MapArea.h"

#include <algorithm>
#include <limits>

namespace VelBrx {

namespace {

constexpr size_t kMostRows = 4096;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

} // namespace

MapArea::MapArea(const MapPolygon& polygon) : _low{kInfinity, kInfinity}, _high{-kInfinity, -kInfinity}
{
    std::vector<Edge> edges;
    for (const auto& ring : polygon)
        for (size_t i = 0; i < ring.size(); ++i) {
            const auto& a = ring[i];
            const auto& b = ring[i + 1 < ring.size() ? i + 1 : 0];
            for (size_t axis = 0; axis < 2; ++axis) {
                _low[axis] = std::min(_low[axis], a[axis]);
                _high[axis] = std::max(_high[axis], a[axis]);
            }
            if (a[1] < b[1]) edges.push_back({a[0], a[1], b[0], b[1]});
            if (b[1] < a[1]) edges.push_back({b[0], b[1], a[0], a[1]});
        }
    _rows.resize(std::clamp<size_t>(edges.size(), 1, kMostRows));
    if (_high[1] > _low[1]) _rowsPerUnit = static_cast<double>(_rows.size()) / (_high[1] - _low[1]);
    for (const Edge& edge : edges)
        for (size_t row = rowOf(edge.lowY), last = rowOf(edge.highY); row <= last; ++row)
            _rows[row].push_back(edge);
}

size_t MapArea::rowOf(double y) const
{
    const double row = (y - _low[1]) * _rowsPerUnit;
    return std::min(static_cast<size_t>(std::max(row, 0.0)), _rows.size() - 1);
}

bool MapArea::contains(double x, double y) const
{
    if (!(x >= _low[0] && x <= _high[0] && y >= _low[1] && y <= _high[1])) return false;
    bool isInside = false;
    for (const Edge& edge : _rows[rowOf(y)])
        if (edge.lowY <= y && y < edge.highY)
            isInside ^= (edge.highX - edge.lowX) * (y - edge.lowY) / (edge.highY - edge.lowY) + edge.lowX > x;
    return isInside;
}

bool MapArea::mayMeet(const std::array<double, 3>& low, const std::array<double, 3>& high) const
{
    return low[0] <= _high[0] && high[0] >= _low[0] && low[1] <= _high[1] && high[1] >= _low[1];
}

} // namespace VelBrx
