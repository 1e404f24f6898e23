#pragma once

#include <VelThreads/Mutex.h>

#include <osg/StateSet>
#include <osg/ref_ptr>
#include <osgUtil/CullVisitor>

#include <map>
#include <vector>

/// The state that a point cloud is drawn with where nobody says otherwise: the points' stored colours at size
/// 1, hidden points hidden, everything else off. One object a cloud; any thread may call it.
class PointDefaults
{
public:
    /// A state set with the defaults that the state sets of a cull traversal lack so far. Pushed behind them,
    /// it fills the gaps and overrules nothing, so that plain state above the cloud or on it still wins. The
    /// result lives as long as this object and is not to be changed. `below` is a state set that will apply
    /// after it, or null; what it gives is not seen as lacking either. `cells` are state sets of single
    /// cells. Where the traversal's camera has no target beside the colour's, the programs write nothing
    /// else.
    const osg::StateSet* missingFrom(osgUtil::CullVisitor& cull, const osg::StateSet* below,
                                     const std::vector<const osg::StateSet*>& cells);

    void resizeGLObjectBuffers(unsigned maxSize);
    void releaseGLObjects(osg::State* state);

private:
    VelThreads::Mutex _mutex;
    std::map<unsigned long, osg::ref_ptr<osg::StateSet>>
        _states VEL_GUARDED_BY(_mutex); ///< by what is given already
};
