#include "render/SurfaceTarget.h"

#include "render/PointPrograms.h"

#include <osg/BlendFunc>
#include <osg/Depth>
#include <osg/Uniform>

#include <algorithm>

namespace {

constexpr int kPixelsPerSample = 2; ///< of the viewport, in each direction
constexpr size_t kMostLevels = 10;

constexpr osg::StateAttribute::OverrideValue kFirm =
    osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;

SurfaceGrid makeGrid(int width, int height, GLenum format = GL_RGBA32F_ARB)
{
    SurfaceGrid grid;
    grid.width = width;
    grid.height = height;
    grid.texture = new osg::Texture2D;
    grid.texture->setTextureSize(width, height);
    grid.texture->setInternalFormat(static_cast<GLint>(format));
    grid.texture->setSourceFormat(GL_RGBA);
    grid.texture->setSourceType(GL_FLOAT);
    grid.texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    grid.texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    grid.texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    grid.texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    grid.frameBuffer = new osg::FrameBufferObject;
    grid.frameBuffer->setAttachment(osg::Camera::COLOR_BUFFER0, osg::FrameBufferAttachment(grid.texture));
    return grid;
}

/// For a rectangle over all that is drawn to.
osg::ref_ptr<osg::StateSet> screenState(PointProgram program)
{
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttributeAndModes(pointProgram(program), osg::StateAttribute::ON | kFirm);
    for (const GLenum mode : {GL_BLEND, GL_CULL_FACE, GL_ALPHA_TEST, GL_STENCIL_TEST})
        state->setMode(mode, osg::StateAttribute::OFF | kFirm);
    state->setAttributeAndModes(new osg::Depth(osg::Depth::ALWAYS, 0, 1, false),
                                osg::StateAttribute::OFF | kFirm);
    return state;
}

void read(osg::StateSet& state, unsigned unit, const char* name, const SurfaceGrid& grid)
{
    state.setTextureAttribute(unit, grid.texture, osg::StateAttribute::ON | kFirm);
    state.addUniform(new osg::Uniform(name, static_cast<int>(unit)), kFirm);
}

void setLevel(osg::StateSet& state, size_t level)
{
    state.addUniform(new osg::Uniform("level", static_cast<int>(level)), kFirm);
}

int half(int size)
{
    return (size + 1) / 2;
}

} // namespace

SurfaceTarget::SurfaceTarget(int width, int height) : viewportWidth(width), viewportHeight(height)
{
    const SurfaceGrid points =
        makeGrid(std::max(1, width / kPixelsPerSample), std::max(1, height / kPixelsPerSample));
    points.frameBuffer->setAttachment(osg::Camera::DEPTH_BUFFER,
                                      osg::FrameBufferAttachment(new osg::RenderBuffer(
                                          points.width, points.height, GL_DEPTH_COMPONENT32F)));
    grids.push_back(points);
    while (grids.size() < kMostLevels && std::max(grids.back().width, grids.back().height) > 2) {
        const SurfaceGrid& finer = grids.back();
        SurfaceGrid grid = makeGrid(half(finer.width), half(finer.height));
        grid.state = screenState(PointProgram::SurfacePull);
        read(*grid.state, 0, "finerSamples", finer);
        setLevel(*grid.state, grids.size());
        grids.push_back(grid);
    }
    const size_t levels = grids.size();
    for (size_t level = levels; level-- > 0;) {
        const bool isCoarsest = level + 1 == levels;
        SurfaceGrid grid = makeGrid(grids[level].width, grids[level].height);
        grid.state = screenState(PointProgram::SurfacePush);
        read(*grid.state, 0, "samples", grids[level]);
        read(*grid.state, 1, "coarserSurface", isCoarsest ? grids[level] : grids.back());
        grid.state->addUniform(new osg::Uniform("isCoarsest", isCoarsest), kFirm);
        setLevel(*grid.state, level);
        grids.push_back(grid);
    }
    const SurfaceGrid surface = grids.back();
    SurfaceGrid relief = makeGrid(surface.width, surface.height, GL_RGBA8);
    relief.state = screenState(PointProgram::SurfaceRelief);
    read(*relief.state, 0, "surface", surface);
    setLevel(*relief.state, 0);
    grids.push_back(relief);
    shading = screenState(PointProgram::SurfaceShade);
    shading->setAttributeAndModes(new osg::Depth(osg::Depth::LEQUAL), osg::StateAttribute::ON | kFirm);
    read(*shading, 0, "surface", surface);
    read(*shading, 1, "relief", relief);
}

void SurfaceTarget::resizeGLObjectBuffers(unsigned maxSize)
{
    for (const SurfaceGrid& grid : grids) {
        grid.frameBuffer->resizeGLObjectBuffers(maxSize);
        grid.texture->resizeGLObjectBuffers(maxSize);
        if (grid.state) grid.state->resizeGLObjectBuffers(maxSize);
    }
    shading->resizeGLObjectBuffers(maxSize);
}

void SurfaceTarget::releaseGLObjects(osg::State* state) const
{
    for (const SurfaceGrid& grid : grids) {
        grid.frameBuffer->releaseGLObjects(state);
        grid.texture->releaseGLObjects(state);
        if (grid.state) grid.state->releaseGLObjects(state);
    }
    shading->releaseGLObjects(state);
}

osg::ref_ptr<SurfaceTarget> SurfaceTargets::fit(osg::Camera& camera, const osg::Viewport& viewport)
{
    const int width = static_cast<int>(viewport.width());
    const int height = static_cast<int>(viewport.height());
    if (width < 1 || height < 1) return nullptr;
    const VelThreads::Lock lock(_mutex);
    osg::ref_ptr<SurfaceTarget>& target = _targets.of(camera);
    if (!target || target->viewportWidth != width || target->viewportHeight != height)
        target = new SurfaceTarget(width, height);
    return target;
}

void SurfaceTargets::resizeGLObjectBuffers(unsigned maxSize)
{
    const VelThreads::Lock lock(_mutex);
    for (const auto& entry : _targets)
        entry.target->resizeGLObjectBuffers(maxSize);
}

void SurfaceTargets::releaseGLObjects(osg::State* state)
{
    const VelThreads::Lock lock(_mutex);
    for (const auto& entry : _targets)
        entry.target->releaseGLObjects(state);
}
