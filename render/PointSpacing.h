#pragma once

#include "lod/PointCloudLOD.h"

#include <VelThreads/Mutex.h>

#include <osg/Node>
#include <osg/StateSet>
#include <osg/Uniform>
#include <osg/ref_ptr>
#include <osgUtil/CullVisitor>

/// How points are as large as the space between them, of the clouds at and below a node: spacing times
/// `factor`, from `smallest` to `largest` pixels. A factor of 0 leaves them at their fixed size.
void setSpacingSizes(osg::StateSet& state, double factor, int smallest, int largest);

/// What the vertex stage needs to know the space between points, of one cloud: which cells are loaded, as a
/// tree with the spacing of each, and how many pixels a unit of length covers for the camera that culls. A
/// point's own cell does not tell: points of coarse cells stand among those of finer ones.
///
/// Any thread may call it.
class PointSpacing
{
public:
    /// State to push behind what is applied, or null where sizes are fixed.
    osg::ref_ptr<const osg::StateSet> state(osgUtil::CullVisitor& cull, const PointCloudLOD& lod);

    void resizeGLObjectBuffers(unsigned maxSize);
    void releaseGLObjects(osg::State* state);

private:
    void follow(const PointCloudLOD& lod) VEL_REQUIRES(_mutex);

    VelThreads::Mutex _mutex;
    bool _isRead VEL_GUARDED_BY(_mutex) = false;
    unsigned _changes VEL_GUARDED_BY(_mutex) = 0;              ///< of the cells that `_tree` is of
    osg::ref_ptr<osg::StateSet> _tree VEL_GUARDED_BY(_mutex);  ///< never changed once it was given out
    osg::ref_ptr<osg::StateSet> _state VEL_GUARDED_BY(_mutex); ///< likewise: of the last camera
    osg::Vec4f _sizes VEL_GUARDED_BY(_mutex);                  ///< in `_state`
};
