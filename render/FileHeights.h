#pragma once

#include <VelThreads/Mutex.h>

#include <osg/Matrixd>
#include <osg/StateSet>
#include <osg/Vec2f>
#include <osg/ref_ptr>
#include <osgUtil/StateGraph>

/// Marks the gradient range of a state set, "elevationEntry", as one of heights in the stores' files: clouds
/// translate it into the heights that they have in the scene. The mark is on the uniform, and goes when a
/// host sets a range of its own.
void markFileHeights(osg::StateSet& state);

/// Translates a marked range for one cloud. Any thread may call it.
class FileHeights
{
public:
    /// State to push behind what is applied, or null where no marked range is in force or it is the right one
    /// as it is. `model` is the cloud's local-to-world matrix, which may move, scale and turn about the
    /// vertical; `origin` the file height of the cloud's local origin.
    osg::ref_ptr<const osg::StateSet> translated(const osgUtil::StateGraph& applied,
                                                 const osg::Matrixd& model, double origin);

private:
    VelThreads::Mutex _mutex;
    osg::Vec2f _range VEL_GUARDED_BY(_mutex);                  ///< of `_state`
    osg::ref_ptr<osg::StateSet> _state VEL_GUARDED_BY(_mutex); ///< never changed once it was given out
};
