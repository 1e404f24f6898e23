#pragma once

#include "viewer/scene/Scene.h"

#include <VelOsgDBBrx/ScreenPolygon.h>
#include <VelOsgDBBrx/SelectSegmentStack.h>

#include <osg/Vec2d>
#include <osg/Vec2f>
#include <osgViewer/Viewer>

#include <vector>

/// What is marked in the picture and in no store: the selection, its segments, and a line that stands out.
/// The scene outlives it. Belongs to the viewer's thread.
class PictureMarks
{
public:
    PictureMarks(Scene& scene, osgViewer::Viewer& viewer);

    /// A value that `restore` goes back to.
    class State
    {
        friend class PictureMarks;

        /// What is restored is applied to the scene anew.
        struct Stack : VelOsgDBBrx::SelectSegmentStack
        {
            using SelectSegmentStack::apply;
            using SelectSegmentStack::SelectSegmentStack;
        };

        std::vector<Stack> stacks;    ///< of the clouds, in their order
        std::vector<osg::Vec2f> line; ///< outline of the strip that stands out, world x and y
    };

    const State& state() const { return _state; }
    void restore(const State& state);

    /// Pixels, y up, of the window as the camera sees it now.
    void select(osg::Camera& camera, std::vector<osg::Vec2d> polygon, bool add);

    /// Leaves nothing but the selection in the picture, or all but it.
    void segment(bool selectedOnly);

    void setLine(const std::vector<osg::Vec2f>& outline);
    void clear();

    bool isEmpty() const;
    bool hasSelection() const { return _state.stacks.front().hasSelection(); }

    /// In world coordinates, the same for all clouds.
    std::vector<VelOsgDBBrx::ScreenPolygon> selection() const { return _state.stacks.front().getSelection(); }
    std::vector<VelOsgDBBrx::ScreenSegment> segments() const { return _state.stacks.front().getSegments(); }

private:
    void applyLine();

    Scene& _scene;
    State _state;
};
