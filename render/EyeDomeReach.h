#pragma once

#include <VelThreads/Mutex.h>

#include <osg/State>
#include <osg/StateSet>
#include <osg/ref_ptr>
#include <osgUtil/StateGraph>

#include <vector>

/// How far from the middle of a point the second pass of eye-dome lighting may read the target: half the
/// width of the largest point, and the radius of the neighbourhood. What is cleared for a cloud reaches as
/// far beyond its box. Travels from cull to draw as a uniform. Any thread may call it.
class EyeDomeReach
{
public:
    /// State to push behind what is applied, or null where some size is of a kind that nobody can read.
    /// `below`: states that add to it, in the second pass or for single cells; each may be null.
    osg::ref_ptr<const osg::StateSet> state(const osgUtil::StateGraph& applied,
                                            const std::vector<const osg::StateSet*>& below);

    /// What `state` gave to what is drawn now, pixels; infinite where it gave nothing.
    static double in(const osg::State& drawn);

private:
    VelThreads::Mutex _mutex;
    float _reach VEL_GUARDED_BY(_mutex) = 0;                   ///< in `_state`
    osg::ref_ptr<osg::StateSet> _state VEL_GUARDED_BY(_mutex); ///< never changed once it was given out
};
