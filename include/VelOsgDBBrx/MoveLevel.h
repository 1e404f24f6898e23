#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <osg/Node>
#include <osg/ref_ptr>

#include <cstdint>
#include <map>

namespace VelOsgDBBrx {

/// The deepest level down to which at most `limit` points are drawn, given the points of each level; 0 when
/// the first level alone has more.
VEL_OSGDB_BRX_EXPORT int deepestLevelWithin(const std::map<int, int>& pointsByLevel, double limit);

/// Keeps moving about smooth: sets the level down to which a context draws while its display is thinned
/// (`VelIncrementalCompileOperation::setMoveLevel`), so that such a frame takes about the time that is
/// wanted, going by the time that whole frames take on this machine.
///
/// Threads: that of the viewer's frames, between frames.
class VEL_OSGDB_BRX_EXPORT MoveLevel
{
public:
    /// `scene` is what is drawn with the context's `operation`; both are held.
    MoveLevel(osg::Node* scene, VelIncrementalCompileOperation* operation);

    /// Tells how many seconds a frame took that drew all points in the scene, and how many frames a second
    /// are wanted while moving. Counts the points of the scene: call it after whole frames alone.
    void wholeFrameTook(double seconds, double framesPerSecond);

    /// In the scene when a frame was told of last.
    uint64_t points() const { return _points; }

private:
    const osg::ref_ptr<osg::Node> _scene;
    const osg::ref_ptr<VelIncrementalCompileOperation> _operation;
    uint64_t _points = 0;
};

} // namespace VelOsgDBBrx
