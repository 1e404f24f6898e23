#pragma once

#include <osg/Camera>
#include <osg/GL>

/// Waits until a frame is drawn, or only handing it over would be timed.
struct FinishFrame : public osg::Camera::DrawCallback
{
    void operator()(osg::RenderInfo&) const override { glFinish(); }
};
