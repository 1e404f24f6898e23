#pragma once

#include "viewer/tool/Tool.h"

/// How large the brush is; it stays from one stroke to the next.
struct BrushSize
{
    double radius = 20; ///< pixels, or units of the world
    bool isInWorld = false;
    double pixelsPerUnit = 0; ///< of the world where the brush is; 0: not known

    static constexpr double kSmallest = 1; ///< pixels
    static constexpr double kLargest = 500;

    double pixels() const;

    /// Larger with a positive step, as a turn of the wheel does.
    void turn(int steps);

    /// Goes over to the other unit; the brush stays as large as it is.
    void switchUnit();
};

/// A disc that paints along the way of the mouse while the button is held. What one stroke has covered is its
/// outline: the union of the discs.
class BrushTool : public Tool
{
public:
    /// `size` outlives the tool.
    explicit BrushTool(BrushSize& size) : _size(size) {}

    void moveTo(const osg::Vec2d& mouse) override;
    void press(const osg::Vec2d& mouse) override;
    void release(const osg::Vec2d& mouse) override;
    void close() override {}
    void dropLast() override { drop(); }
    bool isEmpty() const override { return _way.empty(); }
    bool isClosed() const override { return _isDone; }
    std::vector<osg::Vec2d> outline() const override;
    ToolPreview preview() const override;
    std::string missing() const override { return "drag over the points to paint them"; }
    std::string hint() const override;

    /// Forgets the stroke.
    void drop();

private:
    BrushSize& _size;
    std::vector<osg::Vec2d> _way;
    bool _isPainting = false;
    bool _isDone = false;
};
