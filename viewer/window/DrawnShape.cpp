#include "viewer/window/DrawnShape.h"

void DrawnShape::add(const osg::Vec2d& vertex)
{
    _cursor = vertex;
    if (_closed || (!_vertices.empty() && _vertices.back() == vertex)) return;
    _vertices.push_back(vertex);
    if (_kind == RECTANGLE && _vertices.size() == 2) _closed = true;
}

void DrawnShape::dropLast()
{
    _closed = false;
    if (!_vertices.empty()) _vertices.pop_back();
}

bool DrawnShape::close()
{
    _closed = _closed || (_kind == POLYGON && _vertices.size() >= 3);
    return _closed;
}

std::vector<osg::Vec2d> DrawnShape::spanned(const osg::Vec2d& corner) const
{
    const osg::Vec2d& first = _vertices.front();
    return {first, osg::Vec2d(corner.x(), first.y()), corner, osg::Vec2d(first.x(), corner.y())};
}

std::vector<osg::Vec2d> DrawnShape::vertices() const
{
    return _kind == RECTANGLE && _vertices.size() == 2 ? spanned(_vertices.back()) : _vertices;
}

std::vector<osg::Vec2d> DrawnShape::preview() const
{
    if (_closed || _vertices.empty()) return vertices();
    if (_kind == RECTANGLE) return spanned(_cursor);
    std::vector<osg::Vec2d> shown = _vertices;
    shown.push_back(_cursor);
    return shown;
}
