#include "viewer/window/WindowClear.h"

#include <osg/FrameStamp>
#include <osg/GraphicsContext>
#include <osg/RenderInfo>
#include <osg/State>

void WindowClear::clearFor(osg::GraphicsContext& window)
{
    for (osg::Camera* camera : window.getCameras()) {
        camera->setClearMask(0);
        camera->addInitialDrawCallback(this);
    }
}

void WindowClear::setColor(const osg::Vec4& color)
{
    const VelThreads::Lock lock(_mutex);
    _color = color;
}

void WindowClear::operator()(osg::RenderInfo& renderInfo) const
{
    osg::State& state = *renderInfo.getState();
    const VelThreads::Lock lock(_mutex);
    const unsigned frame = state.getFrameStamp()->getFrameNumber();
    if (frame == _frame) return;
    _frame = frame;
    state.applyMode(GL_SCISSOR_TEST, false);
    glDepthMask(GL_TRUE);
    state.haveAppliedAttribute(osg::StateAttribute::DEPTH);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    state.haveAppliedAttribute(osg::StateAttribute::COLORMASK);
    glClearColor(_color.r(), _color.g(), _color.b(), _color.a());
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}
