#pragma once

#include <osg/Vec2d>
#include <osg/Vec3d>

#include <optional>
#include <string>
#include <vector>

/// What a tool shows over the picture; pixels as of `Outline`.
struct ToolPreview
{
    struct Path
    {
        std::vector<osg::Vec2d> vertices;
        bool isClosed = false;
        bool hasCorners = true; ///< vertices are marked
        double width = 0;       ///< pixels, of a stroke that is painted; 0: a thin line
    };

    std::vector<Path> paths;
};

/// Something to draw with on a picture of the window, or to point with: from the events of the mouse to an
/// outline. Pixels count as those of `Outline`, from the window's top left, y down.
///
/// Belongs to the viewer's thread.
class Tool
{
public:
    virtual ~Tool() = default;
    Tool() = default;
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    /// \name The mouse
    /// `moveTo` with the button held or not; `press` and `release` of the left button.
    /// @{
    virtual void moveTo(const osg::Vec2d& mouse) { _mouse = mouse; }
    virtual void press(const osg::Vec2d& mouse) = 0;
    virtual void release(const osg::Vec2d&) {}
    /// @}

    /// The picture that it is drawn on, once it is begun: its corners, low and high.
    virtual void setArea(const osg::Vec2d&, const osg::Vec2d&) {}

    /// Ends what is drawn; where it needs more, nothing happens, and `missing` says what.
    virtual void close() = 0;

    /// Takes the last corner back.
    virtual void dropLast() = 0;

    /// Nothing is drawn yet.
    virtual bool isEmpty() const = 0;
    virtual bool isClosed() const = 0;

    /// What is covered, a polygon by the even-odd rule; of an open one the corners so far. Empty of a tool
    /// that points.
    virtual std::vector<osg::Vec2d> outline() const = 0;

    virtual ToolPreview preview() const = 0;

    /// \name One line for people
    /// @{
    /// What must be drawn before it is of use.
    virtual std::string missing() const = 0;

    /// What to do next, until it is closed.
    virtual std::string hint() const = 0;
    /// @}

protected:
    osg::Vec2d _mouse;
};
