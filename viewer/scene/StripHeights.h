#pragma once

#include "viewer/scene/Scene.h"

#include <osg/Vec4d>

#include <vector>

/// Heights of the world.
struct HeightSpan
{
    double low;
    double high;
};

/// The heights of the scene's points inside all of the planes, world coordinates, by the points of coarse
/// cells: enough to aim a picture. Those of all points where there is none. It reads records, a bounded
/// number of them: milliseconds.
HeightSpan heightsInside(const Scene& scene, const std::vector<osg::Vec4d>& planes);
