#pragma once

#include "viewer/measure/GroundBelow.h"
#include "viewer/measure/Measurements.h"
#include "viewer/measure/PointFacts.h"
#include "viewer/scene/Scene.h"

#include <osg/Vec2>

#include <deque>
#include <optional>
#include <string>
#include <vector>

/// Measuring by hand: points that are given one by one become a measurement, and then the next one begins,
/// until the user ends it. Also what scripts measure.
///
/// Belongs to the viewer's thread.
class Measuring
{
public:
    /// `scene` outlives it.
    explicit Measuring(const Scene& scene) : _scene(scene) {}

    Measurements& list() { return _list; }
    const Measurements& list() const { return _list; }
    const Units& units() const { return _scene.units(); }

    /// \name The point that was clicked last while nothing was measured
    /// Empty after a click beside all points.
    /// @{
    void setPicked(const std::optional<PointFacts>& point) { _picked = point; }
    const std::optional<PointFacts>& picked() const { return _picked; }
    /// @}

    /// \name By hand
    /// @{
    /// Points that are picked from now on are measured so. What was begun otherwise is dropped.
    void begin(MeasureKind kind);

    /// None while nobody measures.
    std::optional<MeasureKind> kind() const { return _kind; }

    /// The measurement at hand; without points before the first.
    const std::vector<osg::Vec3d>& points() const { return _points; }

    /// What the user did, in its order: points take frames to be found, and what comes after a click counts
    /// when its point is there.
    struct Input
    {
        enum What
        {
            CLICK,
            FINISH,
            DROP_LAST
        };
        What what = CLICK;
        osg::Vec2 place; ///< of a click, pixels of the window, y up
    };

    void add(const Input& input) { _inputs.push_back(input); }

    /// Does what comes before the next click. That click, whose point is to be picked, stays the next one
    /// until `takeClick`; null where there is none.
    const Input* nextClick();
    void takeClick() { _inputs.pop_front(); }

    /// What to do next, a line for people; empty while nobody measures.
    std::string hint() const;

    /// Adds a point; the last that the kind takes completes the measurement.
    void addPoint(const osg::Vec3d& world);
    void dropLastPoint();

    /// Completes a line or a polygon; drops it where it has too few points. False where nothing was begun:
    /// then it ends the measuring.
    bool finish();
    void end();
    /// @}

    /// Adds a measurement to the list; of a height when the ground was found.
    void add(MeasureKind kind, const std::vector<osg::Vec3d>& points);

    /// A search for the ground is under way: call `update` until it is not.
    bool isSearching() const { return _search.isRunning(); }

    /// True when a search has ended, and its measurement was added.
    bool update();

    /// Waits for the ground where `measurement` needs it, and adds the measurement.
    const Measurements::Entry& addNow(Measurement measurement);

private:
    void search();
    std::vector<osg::ref_ptr<OctreeInfo>> stores() const;
    double farthest() const;

    const Scene& _scene;
    Measurements _list;
    std::optional<PointFacts> _picked;
    std::optional<MeasureKind> _kind;
    std::vector<osg::Vec3d> _points;
    std::deque<Input> _inputs;
    GroundSearch _search;
    std::vector<osg::Vec3d> _waiting; ///< for their height above the ground; the first is searched for
};
