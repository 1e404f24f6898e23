#pragma once

#include "viewer/tool/Tool.h"

/// Corners that are clicked.
class PolygonTool : public Tool
{
public:
    void press(const osg::Vec2d& mouse) override;
    void close() override;
    void dropLast() override;
    bool isEmpty() const override { return _corners.empty(); }
    bool isClosed() const override { return _isClosed; }
    std::vector<osg::Vec2d> outline() const override { return _corners; }
    ToolPreview preview() const override;
    std::string missing() const override { return "a polygon needs at least three vertices"; }
    std::string hint() const override;

private:
    std::vector<osg::Vec2d> _corners;
    bool _isClosed = false;
};

/// Two places, by two clicks or one drag.
class TwoPlacesTool : public Tool
{
public:
    void press(const osg::Vec2d& mouse) override;
    void release(const osg::Vec2d& mouse) override;
    void close() override {}
    void dropLast() override;
    bool isEmpty() const override { return _places.empty(); }
    bool isClosed() const override { return _places.size() == 2; }
    std::vector<osg::Vec2d> outline() const override;
    ToolPreview preview() const override;

private:
    virtual std::vector<osg::Vec2d> spanned(const osg::Vec2d& first, const osg::Vec2d& second) const = 0;

    std::vector<osg::Vec2d> _places;
};

/// Two opposite corners.
class RectangleTool : public TwoPlacesTool
{
public:
    std::string missing() const override { return "a rectangle needs two corners"; }
    std::string hint() const override;

private:
    std::vector<osg::Vec2d> spanned(const osg::Vec2d& first, const osg::Vec2d& second) const override;
};

/// The centre, and a place on the circle.
class CircleTool : public TwoPlacesTool
{
public:
    std::string missing() const override { return "a circle needs its centre and its radius"; }
    std::string hint() const override;

private:
    std::vector<osg::Vec2d> spanned(const osg::Vec2d& first, const osg::Vec2d& second) const override;
};

/// What is drawn freehand while the button is held.
class LassoTool : public Tool
{
public:
    void moveTo(const osg::Vec2d& mouse) override;
    void press(const osg::Vec2d& mouse) override;
    void release(const osg::Vec2d& mouse) override;
    void close() override {}
    void dropLast() override;
    bool isEmpty() const override { return _way.empty(); }
    bool isClosed() const override { return _isClosed; }
    std::vector<osg::Vec2d> outline() const override { return _way; }
    ToolPreview preview() const override { return {{{_way, _isClosed, false}}}; }
    std::string missing() const override { return "draw around the points with the button held"; }
    std::string hint() const override;

private:
    std::vector<osg::Vec2d> _way;
    bool _isDrawing = false;
    bool _isClosed = false;
};

/// All that is above or below a line, between its ends, as far as the picture goes. The line runs through the
/// corners from left to right, in whatever order they were clicked.
class LineSideTool : public Tool
{
public:
    explicit LineSideTool(bool above) : _isAbove(above) {}

    void setArea(const osg::Vec2d& low, const osg::Vec2d& high) override;
    void press(const osg::Vec2d& mouse) override;
    void close() override;
    void dropLast() override;
    bool isEmpty() const override { return _corners.empty(); }
    bool isClosed() const override { return _isClosed; }
    std::vector<osg::Vec2d> outline() const override;
    ToolPreview preview() const override;
    std::string missing() const override { return "a line needs two corners that are not above each other"; }
    std::string hint() const override;

private:
    const bool _isAbove;
    double _edge = 0;                 ///< of the picture, on the line's side
    std::vector<osg::Vec2d> _corners; ///< as clicked
    bool _isClosed = false;
};

/// What is between two lines, where both run.
class BetweenLinesTool : public Tool
{
public:
    void press(const osg::Vec2d& mouse) override;
    void close() override;
    void dropLast() override;
    bool isEmpty() const override { return _first.empty(); }
    bool isClosed() const override { return _closed == 2; }
    std::vector<osg::Vec2d> outline() const override;
    ToolPreview preview() const override;
    std::string missing() const override;
    std::string hint() const override;

private:
    std::vector<osg::Vec2d>& current() { return _closed == 0 ? _first : _second; }

    std::vector<osg::Vec2d> _first;
    std::vector<osg::Vec2d> _second;
    int _closed = 0; ///< lines that have their last corner
};

/// Points at one point, from which more is to grow.
class GrowTool : public Tool
{
public:
    void press(const osg::Vec2d& mouse) override;
    void close() override {}
    void dropLast() override;
    bool isEmpty() const override { return !_place; }
    bool isClosed() const override { return _seed.has_value(); }
    std::vector<osg::Vec2d> outline() const override { return {}; }
    ToolPreview preview() const override;
    std::string missing() const override { return "click on a point first"; }
    std::string hint() const override;

    /// What a pick at the place has found, in the world; nothing where there is no point.
    void setSeed(const std::optional<osg::Vec3d>& seed);
    const std::optional<osg::Vec3d>& seed() const { return _seed; }

private:
    std::optional<osg::Vec2d> _place; ///< that was clicked
    std::optional<osg::Vec3d> _seed;
};
