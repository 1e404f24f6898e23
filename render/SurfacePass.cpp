#include "render/SurfacePass.h"

#include <osg/RenderInfo>
#include <osg/State>

namespace {

/// The programs take its corners as they are.
void drawRectangle()
{
    glBegin(GL_TRIANGLE_STRIP);
    for (const float y : {-1.0f, 1.0f})
        for (const float x : {-1.0f, 1.0f})
            glVertex2f(x, y);
    glEnd();
}

void drawWith(const osg::StateSet& state, osg::State& context)
{
    context.pushStateSet(&state);
    context.apply();
    drawRectangle();
    context.popStateSet();
}

} // namespace

void SurfacePass::begin(osg::RenderInfo& renderInfo)
{
    _bound = FrameBufferBinding::current();
    glGetIntegerv(GL_VIEWPORT, _viewport);
    _hasScissor = glIsEnabled(GL_SCISSOR_TEST) == GL_TRUE;
    if (_hasScissor) glDisable(GL_SCISSOR_TEST);
    const SurfaceGrid& points = _target->grids.front();
    bind(*points.frameBuffer, *renderInfo.getState());
    glViewport(0, 0, points.width, points.height);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

void SurfacePass::end(osg::RenderInfo& renderInfo) const
{
    osg::State& state = *renderInfo.getState();
    state.pushStateSet(_settings);
    for (const SurfaceGrid& grid : _target->grids) {
        if (!grid.state) continue;
        bind(*grid.frameBuffer, state);
        glViewport(0, 0, grid.width, grid.height);
        drawWith(*grid.state, state);
    }
    _bound.bind(state);
    glViewport(_viewport[0], _viewport[1], _viewport[2], _viewport[3]);
    if (_hasScissor) glEnable(GL_SCISSOR_TEST);
    drawWith(*_target->shading, state);
    state.popStateSet();
    state.apply();
}

SurfacePassEnd::SurfacePassEnd(SurfacePass* pass, End end) : _pass(pass), _end(end)
{
    setSupportsDisplayList(false);
    setUseVertexArrayObject(false);
    setCullingActive(false);
}

void SurfacePassEnd::drawImplementation(osg::RenderInfo& renderInfo) const
{
    if (_end == BEGIN)
        _pass->begin(renderInfo);
    else
        _pass->end(renderInfo);
}
