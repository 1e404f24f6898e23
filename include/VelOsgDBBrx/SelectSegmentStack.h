#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/ScreenPolygon.h>

#include <osg/Camera>
#include <osg/Matrixd>
#include <osg/Node>
#include <osg/Vec2d>
#include <osg/Vec3d>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <deque>
#include <list>
#include <vector>

namespace osgViewer {
class View;
class Viewer;
} // namespace osgViewer

namespace VelOsgDBBrx {

/// The polygons drawn on the screen to select points of a cloud (shown in the selection colour) or to segment
/// it (hide the inside or the outside of a selection), with a history. The renderer evaluates them: no point
/// is changed. Each polygon keeps the matrices of the moment it was drawn, so that a selection stays on the
/// data while the camera moves.
///
/// Make one stack for each point cloud. Uniforms and buffers go on the state set of the node handed in, so
/// that two clouds in one scene have selections of their own. When the node has `PointCloudLOD` nodes below
/// transforms of its own, the first one's frame counts.
///
/// Polygons are in window coordinates as `osg::Viewport` gives them: pixels, y up. A vertex may lie outside
/// the window; a polygon may cross itself (even-odd rule); with fewer than three vertices it contains
/// nothing.
///
/// Threads: one at a time, where the scene may be changed: between frames or in the update traversal.
class VEL_OSGDB_BRX_EXPORT SelectSegmentStack
{
public:
    /// The viewer's camera is observed, the node held. With a null viewer or node nothing can be pushed.
    SelectSegmentStack(osgViewer::Viewer* viewer, osg::Node* node);

    /// The same for any view, one of a `osgViewer::CompositeViewer` say.
    SelectSegmentStack(osgViewer::View& view, osg::Node* node);
    SelectSegmentStack(const SelectSegmentStack&) = default;
    SelectSegmentStack(SelectSegmentStack&&) = default;
    SelectSegmentStack& operator=(const SelectSegmentStack&) = default;
    SelectSegmentStack& operator=(SelectSegmentStack&&) = default;
    virtual ~SelectSegmentStack();

    /// The camera that polygons are drawn over from now on; it is observed.
    void setCamera(osg::Camera* camera) { _camera = camera; }

    /// Selects the points inside (`inside` true) or takes them out of the selection (false).
    void selectPushAndApply(std::vector<osg::Vec2d>& polygon, bool inside);
    void selectPushAndApply(const std::vector<osg::Vec2d>& polygon, bool inside)
    {
        std::vector<osg::Vec2d> copy = polygon;
        selectPushAndApply(copy, inside);
    }

    /// Drops the last selection polygon. The history keeps its entry.
    void selectPopAndApply();

    /// Drops all selection polygons. The history keeps its entries.
    void selectClearAndApply();

    /// true hides the points inside. false hides every point: its polygon deselects, and what is not selected
    /// is hidden; use `selectPushAndApply` and `selectConvertSegment(false)` to hide the outside.
    void segmentPushAndApply(std::vector<osg::Vec2d>& polygon, bool flag);
    void segmentPushAndApply(const std::vector<osg::Vec2d>& polygon, bool flag)
    {
        std::vector<osg::Vec2d> copy = polygon;
        segmentPushAndApply(copy, flag);
    }

    /// Drops the last segment. The history keeps its entry.
    void segmentPopAndApply();

    /// Drops all segments. The history keeps its entries.
    void segmentClearAndApply();

    /// Turns the selection into a segment: its points are hidden (`cullInside` true), or all others (false).
    void selectConvertSegment(bool cullInside);

    /// Turns the last segment back into the selection. The history keeps its entry.
    void selectConvertPopAndApply();

    /// Undoes the last push or conversion in the history.
    void pop();

    /// Empties selection, segments and history.
    void clearAndApply();

    bool hasSelection() const { return !_selection.empty(); }
    bool hasSegment() const { return !_segments.empty(); }

    /// \name What an edit needs to reach just the points that the renderer shows or selects
    /// In world coordinates, where the cloud stands in the scene at this moment: see PointSelection.
    /// @{
    std::vector<ScreenPolygon> getSelection() const;
    std::vector<ScreenSegment> getSegments() const;
    /// @}

    /// What the renderer decides for a point; `p` in the frame of the cloud's vertices: file coordinates
    /// minus the store's offset.
    bool pointIsSelect(osg::Vec3d& p);
    bool pointIsSelect(const osg::Vec3d& p)
    {
        osg::Vec3d copy = p;
        return pointIsSelect(copy);
    }
    bool pointIsVisible(osg::Vec3d& p);
    bool pointIsVisible(const osg::Vec3d& p)
    {
        osg::Vec3d copy = p;
        return pointIsVisible(copy);
    }

protected:
    /// Rebuilds the buffers from the lists.
    void apply();

private:
    struct Entry
    {
        bool inside; ///< points inside become selected, or unselected
        osg::Matrixd mvp;
        osg::Matrixd mvpw;
        std::vector<osg::Vec2d> polygon;
    };

    struct Group
    {
        bool cullInside; ///< points that the group selects are hidden, or those that it does not select
        std::list<Entry> entries;
    };

    enum class Operation
    {
        SEGMENT_PUSH = 0,
        SELECT_PUSH = 1,
        SELECT_CONVERT = 2
    };

    class Buffers;

    bool nodesAlive() const;

    /// Entries are kept in the cloud's frame.
    std::vector<ScreenPolygon> inWorld(const std::list<Entry>& entries) const;

    /// Adds the polygon with the matrices of this moment; false when there are none.
    bool append(std::list<Entry>& entries, const std::vector<osg::Vec2d>& polygon, bool inside) const;
    void unconvert();
    void switchOff();
    static bool isSelected(const std::list<Entry>& entries, const osg::Vec3d& p);

    osg::observer_ptr<osg::Node> _clipNode; ///< gets "activeClip"; where the search for the matrices starts
    osg::ref_ptr<osg::Node> _bufferNode;    ///< gets the buffers; the same node
    osg::observer_ptr<osg::Camera> _camera;
    std::list<Entry> _selection;
    std::list<Group> _segments;
    std::deque<Operation> _history;
};

} // namespace VelOsgDBBrx
