#pragma once

#include <osg/Vec2d>

#include <vector>

/// A polygon or a rectangle that a user draws on the window, in pixels as of `Outline`. A rectangle is
/// given by two opposite corners, and is closed when it has both.
class DrawnShape
{
public:
    enum Kind
    {
        POLYGON,
        RECTANGLE
    };

    explicit DrawnShape(Kind kind) : _kind(kind) {}

    Kind kind() const { return _kind; }
    bool isClosed() const { return _closed; }

    /// Where the mouse is: the shape is shown as if there were a vertex.
    void moveTo(const osg::Vec2d& cursor) { _cursor = cursor; }

    /// Nothing happens when the shape is closed, or the last vertex is at the same place.
    void add(const osg::Vec2d& vertex);

    /// Takes the last vertex away, and opens a closed shape.
    void dropLast();

    /// False, and nothing happens, when there are too few vertices.
    bool close();

    /// The vertices so far; of a rectangle with both corners, its four.
    std::vector<osg::Vec2d> vertices() const;

    /// What to show: the vertices, and the mouse while the shape is open.
    std::vector<osg::Vec2d> preview() const;

private:
    std::vector<osg::Vec2d> spanned(const osg::Vec2d& corner) const;

    Kind _kind;
    bool _closed = false;
    std::vector<osg::Vec2d> _vertices; ///< as clicked
    osg::Vec2d _cursor;
};
