#include "render/EyeDomeTarget.h"

#include "render/PointPrograms.h"

#include <VelThreads/Mutex.h>

#include <osg/State>
#include <osg/Uniform>

#include <algorithm>

namespace {

osg::ref_ptr<osg::Texture2D> makeColorTexture(int width, int height)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(width, height);
    texture->setInternalFormat(GL_RGBA);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
    return texture;
}

osg::ref_ptr<osg::Texture2D> makeDepthTexture(int width, int height)
{
    osg::ref_ptr<osg::Texture2D> texture = new osg::Texture2D;
    texture->setTextureSize(width, height);
    texture->setInternalFormat(GL_DEPTH_COMPONENT);
    texture->setSourceFormat(GL_DEPTH_COMPONENT);
    texture->setSourceType(GL_FLOAT);
    texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::NEAREST);
    texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::NEAREST);
    texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
    texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
    return texture;
}

} // namespace

EyeDomeTarget::EyeDomeTarget(int targetWidth, int targetHeight, int drawnHeight)
    : width(targetWidth), height(targetHeight), viewportHeight(drawnHeight),
      color(makeColorTexture(width, height)), depth(makeDepthTexture(width, height)),
      frameBuffer(new osg::FrameBufferObject), _perspectiveState(makeReadingState(true)),
      _orthographicState(makeReadingState(false))
{
    frameBuffer->setAttachment(osg::Camera::DEPTH_BUFFER, osg::FrameBufferAttachment(depth));
    frameBuffer->setAttachment(osg::Camera::COLOR_BUFFER0, osg::FrameBufferAttachment(color));
}

osg::ref_ptr<osg::StateSet> EyeDomeTarget::makeReadingState(bool perspective) const
{
    // Overriding keeps out state below, above all the program of a colour mode; protection that of a host
    // that overrides from above.
    constexpr osg::StateAttribute::OverrideValue kFirm =
        osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttributeAndModes(pointProgram(PointProgram::EyeDome), kFirm);
    state->setTextureAttributeAndModes(0, depth, kFirm);
    state->setTextureAttributeAndModes(1, color, kFirm);
    state->addUniform(new osg::Uniform("Sx", static_cast<float>(width)), kFirm);
    state->addUniform(new osg::Uniform("Sy", static_cast<float>(height)), kFirm);
    state->addUniform(new osg::Uniform("viewportHeight", static_cast<float>(viewportHeight)), kFirm);
    state->addUniform(new osg::Uniform("PerspectiveMode", perspective ? 1 : 0), kFirm);
    return state;
}

osg::ref_ptr<EyeDomeTargets> EyeDomeTargets::shared()
{
    static VelThreads::Mutex mutex;
    static osg::observer_ptr<EyeDomeTargets> instance VEL_GUARDED_BY(mutex);
    const VelThreads::Lock lock(mutex);
    osg::ref_ptr<EyeDomeTargets> targets;
    if (!instance.lock(targets)) {
        targets = new EyeDomeTargets;
        instance = targets;
    }
    return targets;
}

osg::ref_ptr<EyeDomeTarget> EyeDomeTargets::fit(osg::Camera& camera, const osg::Viewport& viewport)
{
    const int width = static_cast<int>(viewport.x() + viewport.width());
    const int height = static_cast<int>(viewport.y() + viewport.height());
    const int drawn = static_cast<int>(viewport.height());
    const VelThreads::Lock lock(_mutex);
    osg::ref_ptr<EyeDomeTarget>& target = _targets.of(camera);
    if (!target || target->width != width || target->height != height || target->viewportHeight != drawn)
        target = new EyeDomeTarget(width, height, drawn);
    return target;
}

osg::ref_ptr<EyeDomeTarget> EyeDomeTargets::find(const osg::Camera* camera)
{
    const VelThreads::Lock lock(_mutex);
    for (const auto& entry : _targets)
        if (entry.camera.get() == camera) return entry.target;
    return nullptr;
}

bool EyeDomeTargets::begin(const EyeDomeTarget& target, osg::State& state)
{
    const FrameBufferBinding bound = FrameBufferBinding::current();
    const osg::FrameStamp* stamp = state.getFrameStamp();
    bool isFirst = true;
    {
        const VelThreads::Lock lock(_mutex);
        _boundBefore.emplace(state.getContextID(), bound); // keeps an entry: a target is bound already then
        Use& use = _lastUse[state.getContextID()];
        isFirst = !stamp || use.target != &target || use.frame != stamp->getFrameNumber();
        use = {&target, stamp ? stamp->getFrameNumber() : 0};
    }
    bind(*target.frameBuffer, state);
    return isFirst;
}

void EyeDomeTargets::end(osg::State& state)
{
    FrameBufferBinding bound;
    {
        const VelThreads::Lock lock(_mutex);
        const auto entry = _boundBefore.find(state.getContextID());
        if (entry == _boundBefore.end()) return;
        bound = entry->second;
        _boundBefore.erase(entry);
    }
    bound.bind(state);
}

void EyeDomeTargets::resizeGLObjectBuffers(unsigned maxSize)
{
    const VelThreads::Lock lock(_mutex);
    for (const auto& entry : _targets) {
        entry.target->frameBuffer->resizeGLObjectBuffers(maxSize);
        entry.target->color->resizeGLObjectBuffers(maxSize);
        entry.target->depth->resizeGLObjectBuffers(maxSize);
    }
}

void EyeDomeTargets::releaseGLObjects(osg::State* state)
{
    const VelThreads::Lock lock(_mutex);
    for (const auto& entry : _targets) {
        entry.target->frameBuffer->releaseGLObjects(state);
        entry.target->color->releaseGLObjects(state);
        entry.target->depth->releaseGLObjects(state);
    }
}
