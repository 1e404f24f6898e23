#include "viewer/tool/ShapeTools.h"

#include "viewer/tool/Simplify.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kDragPixels = 3; // a hand is not still
constexpr double kAccuracy = 0.5; ///< of curves, pixels
constexpr size_t kMostVertices = 1000;

using Line = std::vector<osg::Vec2d>;

/// The line through corners, from left to right.
Line fromLeft(Line corners)
{
    std::stable_sort(corners.begin(), corners.end(),
                     [](const osg::Vec2d& a, const osg::Vec2d& b) { return a.x() < b.x(); });
    return corners;
}

bool isLine(const Line& corners)
{
    const Line line = fromLeft(corners);
    return line.size() >= 2 && line.front().x() < line.back().x();
}

double heightAt(const Line& line, double x)
{
    const auto right = std::find_if(line.begin() + 1, line.end() - 1,
                                    [x](const osg::Vec2d& corner) { return corner.x() >= x; });
    const osg::Vec2d& a = *(right - 1);
    const osg::Vec2d& b = *right;
    return a.x() < b.x() ? a.y() + (b.y() - a.y()) * (x - a.x()) / (b.x() - a.x()) : b.y();
}

/// The part of a line with x from `low` to `high`, which lie on it.
Line partOf(const Line& line, double low, double high)
{
    Line part = {osg::Vec2d(low, heightAt(line, low))};
    for (const osg::Vec2d& corner : line)
        if (corner.x() > low && corner.x() < high) part.push_back(corner);
    part.emplace_back(high, heightAt(line, high));
    return part;
}

void addCorner(Line& corners, const osg::Vec2d& corner)
{
    if (corners.empty() || corners.back() != corner) corners.push_back(corner);
}

Line with(Line corners, const osg::Vec2d& mouse)
{
    corners.push_back(mouse);
    return corners;
}

/// Of corners that are clicked, until there are `fewest` and then on.
std::string cornersHint(const std::string& what, size_t corners, size_t fewest)
{
    if (corners == 0) return what + ": click its corners; Esc cancels";
    return what + ", " + std::to_string(corners) + (corners == 1 ? " corner" : " corners") +
           (corners < fewest ? ": click the next one" : ": click more, Enter or right click closes") +
           "; Backspace drops, Esc cancels";
}

} // namespace

void PolygonTool::press(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    if (!_isClosed) addCorner(_corners, mouse);
}

void PolygonTool::close()
{
    _isClosed = _isClosed || _corners.size() >= 3;
}

void PolygonTool::dropLast()
{
    _isClosed = false;
    if (!_corners.empty()) _corners.pop_back();
}

ToolPreview PolygonTool::preview() const
{
    if (_isClosed || _corners.empty()) return {{{_corners, _isClosed}}};
    return {{{with(_corners, _mouse)}}};
}

std::string PolygonTool::hint() const
{
    return cornersHint("polygon", _corners.size(), 3);
}

void TwoPlacesTool::press(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    if (!isClosed()) addCorner(_places, mouse);
}

void TwoPlacesTool::release(const osg::Vec2d& mouse)
{
    if (_places.size() == 1 && (mouse - _places.front()).length() > kDragPixels) press(mouse);
}

void TwoPlacesTool::dropLast()
{
    if (!_places.empty()) _places.pop_back();
}

std::vector<osg::Vec2d> TwoPlacesTool::outline() const
{
    return isClosed() ? spanned(_places[0], _places[1]) : _places;
}

ToolPreview TwoPlacesTool::preview() const
{
    if (isEmpty()) return {};
    return {{{spanned(_places.front(), isClosed() ? _places.back() : _mouse), isClosed()}}};
}

std::vector<osg::Vec2d> RectangleTool::spanned(const osg::Vec2d& first, const osg::Vec2d& second) const
{
    return {first, {second.x(), first.y()}, second, {first.x(), second.y()}};
}

std::string RectangleTool::hint() const
{
    return isEmpty() ? "rectangle: drag it, or click two corners; Esc cancels"
                     : "rectangle: click the opposite corner; Backspace drops, Esc cancels";
}

std::vector<osg::Vec2d> CircleTool::spanned(const osg::Vec2d& first, const osg::Vec2d& second) const
{
    // An edge is at most the accuracy off the circle.
    const double radius = (second - first).length();
    const double step = 2 * std::acos(1 - std::min(1.0, kAccuracy / std::max(radius, kAccuracy)));
    const int corners = std::clamp(static_cast<int>(std::ceil(2 * M_PI / step)), 12, 512);
    std::vector<osg::Vec2d> circle;
    for (int i = 0; i < corners; ++i) {
        const double angle = 2 * M_PI * i / corners;
        circle.push_back(first + osg::Vec2d(std::cos(angle), std::sin(angle)) * radius);
    }
    return circle;
}

std::string CircleTool::hint() const
{
    return isEmpty() ? "circle: drag from its centre, or click centre and radius; Esc cancels"
                     : "circle: click where its edge is to be; Backspace drops, Esc cancels";
}

void LassoTool::moveTo(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    if (_isDrawing) addCorner(_way, mouse);
}

void LassoTool::press(const osg::Vec2d& mouse)
{
    if (_isClosed) return;
    _way = {mouse};
    _isDrawing = true;
}

void LassoTool::release(const osg::Vec2d& mouse)
{
    if (!_isDrawing) return;
    moveTo(mouse);
    _isDrawing = false;
    _way = simplified(_way, kAccuracy, kMostVertices);
    _isClosed = _way.size() >= 3;
    if (!_isClosed) _way.clear();
}

void LassoTool::dropLast()
{
    _way.clear();
    _isDrawing = false;
    _isClosed = false;
}

std::string LassoTool::hint() const
{
    return "lasso: drag around the points with the button held; Esc cancels";
}

void LineSideTool::setArea(const osg::Vec2d& low, const osg::Vec2d& high)
{
    _edge = _isAbove ? low.y() : high.y();
}

void LineSideTool::press(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    if (!_isClosed) addCorner(_corners, mouse);
}

void LineSideTool::close()
{
    _isClosed = _isClosed || isLine(_corners);
}

void LineSideTool::dropLast()
{
    _isClosed = false;
    if (!_corners.empty()) _corners.pop_back();
}

std::vector<osg::Vec2d> LineSideTool::outline() const
{
    std::vector<osg::Vec2d> line = fromLeft(_corners);
    if (!_isClosed) return line;
    const double left = line.front().x();
    line.emplace_back(line.back().x(), _edge);
    line.emplace_back(left, _edge);
    return line;
}

ToolPreview LineSideTool::preview() const
{
    if (_isClosed || isEmpty()) return {{{outline(), _isClosed}}};
    return {{{fromLeft(with(_corners, _mouse))}}};
}

std::string LineSideTool::hint() const
{
    return cornersHint(_isAbove ? "above a line" : "below a line", _corners.size(), 2);
}

void BetweenLinesTool::press(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    if (!isClosed()) addCorner(current(), mouse);
}

void BetweenLinesTool::close()
{
    if (!isClosed() && isLine(current())) ++_closed;
    if (_closed == 2 && outline().empty()) --_closed;
}

void BetweenLinesTool::dropLast()
{
    if (_closed == 2 || (_closed == 1 && _second.empty())) --_closed;
    if (!current().empty()) current().pop_back();
}

std::vector<osg::Vec2d> BetweenLinesTool::outline() const
{
    if (!isLine(_first) || !isLine(_second)) return {};
    const Line first = fromLeft(_first);
    const Line second = fromLeft(_second);
    const double low = std::max(first.front().x(), second.front().x());
    const double high = std::min(first.back().x(), second.back().x());
    if (!(low < high)) return {};
    Line outline = partOf(first, low, high);
    const Line back = partOf(second, low, high);
    outline.insert(outline.end(), back.rbegin(), back.rend());
    return outline;
}

ToolPreview BetweenLinesTool::preview() const
{
    if (isClosed()) return {{{outline(), true}}};
    ToolPreview preview;
    const auto add = [&](const Line& corners, bool isOpen) {
        if (!corners.empty()) preview.paths.push_back({fromLeft(isOpen ? with(corners, _mouse) : corners)});
    };
    add(_first, _closed == 0);
    add(_second, true);
    return preview;
}

std::string BetweenLinesTool::missing() const
{
    if (_closed == 1 && isLine(_second)) return "the second line must run above or below the first one";
    return std::string(_closed == 0 ? "the first" : "the second") +
           " line needs two corners that are not above each other";
}

std::string BetweenLinesTool::hint() const
{
    return cornersHint(_closed == 0 ? "the first of two lines" : "the second of two lines",
                       _closed == 0 ? _first.size() : _second.size(), 2);
}

void GrowTool::press(const osg::Vec2d& mouse)
{
    _mouse = mouse;
    _place = mouse;
    _seed.reset();
}

void GrowTool::dropLast()
{
    _place.reset();
    _seed.reset();
}

void GrowTool::setSeed(const std::optional<osg::Vec3d>& seed)
{
    _seed = seed;
    if (!seed) _place.reset();
}

ToolPreview GrowTool::preview() const
{
    if (!_place) return {};
    return {{{{*_place}, _seed.has_value()}}};
}

std::string GrowTool::hint() const
{
    return _place ? "grow: looking for the point" : "grow: click on a point; Esc cancels";
}
