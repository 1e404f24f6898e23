#pragma once

#include <osg/Camera>
#include <osg/GL>

/// Waits until a frame is drawn, or the time would be that of handing it over.
struct FinishFrame : public osg::Camera::DrawCallback
{
    void operator()(osg::RenderInfo&) const override { glFinish(); }
};
