#pragma once

#include <osg/Camera>
#include <osg/Vec4d>
#include <osg/ref_ptr>

#include <vector>

/// A picture in the window, as edits and picks mean it: its camera, and the planes that it alone has, such as
/// those of a section's strip. World coordinates (a, b, c, d), inside where a x + b y + c z + d >= 0; the
/// clip planes of the scene count in every picture.
struct Sight
{
    osg::ref_ptr<osg::Camera> camera;
    std::vector<osg::Vec4d> planes = {};
};
