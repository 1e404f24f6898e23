#pragma once

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osg/Node>
#include <osg/ref_ptr>

#include <cstdint>
#include <map>

/// The deepest level down to which at most `limit` points are drawn, given the points of each level; 0 when
/// the first level alone has more.
int deepestLevelWithin(const std::map<int, int>& pointsByLevel, double limit);

/// Keeps dragging smooth: sets the level down to which the display is drawn while the user drags, so that
/// such a frame takes about the time that is wanted, going by the time that whole frames take on this
/// machine. Belongs to the viewer's thread.
class MoveLevel
{
public:
    /// `scene` is what is drawn with `operation`; both are held.
    MoveLevel(osg::Node* scene, VelOsgDBBrx::VelIncrementalCompileOperation* operation);

    /// Tells how long a frame took that drew all points in the scene, and how many are wanted while dragging.
    void wholeFrameTook(double seconds, double framesPerSecond);

    /// In the scene as of then.
    uint64_t points() const { return _points; }

private:
    const osg::ref_ptr<osg::Node> _scene;
    const osg::ref_ptr<VelOsgDBBrx::VelIncrementalCompileOperation> _operation;
    uint64_t _points = 0;
};
