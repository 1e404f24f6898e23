#pragma once

#include "viewer/scene/Scene.h"

#include <VelOsgDBBrx/ScreenPolygon.h>

#include <osg/Vec2f>
#include <osg/Vec4d>

#include <vector>

/// What is marked in the picture and in no store: the selection, its segments, and a line that stands out.
/// The scene outlives it. Belongs to the viewer's thread.
class PictureMarks
{
public:
    explicit PictureMarks(Scene& scene) : _scene(scene) {}

    /// A value that `restore` goes back to, whichever clouds are on show by then. World coordinates.
    struct State
    {
        std::vector<VelOsgDBBrx::ScreenPolygon> selection;
        std::vector<osg::Vec4d> planes; ///< all that is selected is inside; none of the main picture's
        std::vector<VelOsgDBBrx::ScreenSegment> segments;
        std::vector<osg::Vec2f> line; ///< outline of the strip that stands out, x and y
    };

    const State& state() const { return _state; }
    void restore(const State& state);

    /// Marks what is marked on a cloud that came into the scene.
    void markCloud(const Scene::Cloud& cloud) const;

    /// Adds what is in the polygon to the selection, or takes it out, as the polygon says: of a picture that
    /// has planes of its own what is between these alone. Such a picture begins a selection anew where points
    /// of another one are selected; true when it did.
    bool select(const VelOsgDBBrx::ScreenPolygon& polygon, const std::vector<osg::Vec4d>& planes);

    /// Whether a picture with these planes can take points out of the selection.
    bool canDeselect(const std::vector<osg::Vec4d>& planes) const
    {
        return planes.empty() || planes == _state.planes;
    }

    /// Leaves nothing but the selection in the picture, or all but it.
    void segment(bool selectedOnly);

    void setLine(const std::vector<osg::Vec2f>& outline);
    void clear() { restore({}); }

    bool isEmpty() const;
    bool hasSelection() const { return !_state.selection.empty(); }

private:
    void markClouds() const;
    void applyLine() const;

    Scene& _scene;
    State _state;
};
