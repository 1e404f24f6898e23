#include "render/EdlPreRender.h"

#include <osg/BlendFunc>
#include <osg/ColorMask>
#include <osg/Depth>
#include <osg/Geode>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Viewport>
#include <osgUtil/CullVisitor>

namespace {

/// Keeps the target of the camera that culls at the size of its viewport. The target reaches from the
/// window's corner, so that a pixel has the same place in both.
class WindowResizeEventHandler : public osg::DrawableCullCallback
{
public:
    explicit WindowResizeEventHandler(EyeDomeTargets* targets) : _targets(targets) {}

    bool cull(osg::NodeVisitor* visitor, osg::Drawable*, osg::RenderInfo*) const override
    {
        osgUtil::CullVisitor* cull = visitor->asCullVisitor();
        const osg::Viewport* viewport = cull ? cull->getViewport() : nullptr;
        osg::Camera* camera = cull ? cull->getCurrentCamera() : nullptr;
        if (!viewport || !camera) return true;
        _targets->fit(*camera, static_cast<int>(viewport->x() + viewport->width()),
                      static_cast<int>(viewport->y() + viewport->height()));
        return false;
    }

private:
    osg::ref_ptr<EyeDomeTargets> _targets;
};

/// A stage has no extent and is never culled.
osg::ref_ptr<osg::Geode> makeStage(osg::Drawable* drawable, int bin)
{
    drawable->setSupportsDisplayList(false);
    drawable->setCullingActive(false);
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setCullingActive(false);
    geode->addDrawable(drawable);
    geode->getOrCreateStateSet()->setRenderBinDetails(bin, "RenderBin");
    return geode;
}

} // namespace

RenderStageStart::RenderStageStart(EyeDomeTargets* targets) : _targets(targets)
{
    setCullCallback(new WindowResizeEventHandler(targets));
    getOrCreateStateSet()->setRenderBinDetails(-1, "RenderBin");
}

void RenderStageStart::drawImplementation(osg::RenderInfo& renderInfo) const
{
    const osg::ref_ptr<EyeDomeTarget> target = _targets->find(renderInfo.getCurrentCamera());
    if (!target) return;
    _targets->begin(*target, *renderInfo.getState());
    glClearColor(1.0f, 1.0f, 1.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

void RenderStageStart::resizeGLObjectBuffers(unsigned int maxSize)
{
    _targets->resizeGLObjectBuffers(maxSize);
    osg::Drawable::resizeGLObjectBuffers(maxSize);
}

void RenderStageStart::releaseGLObjects(osg::State* state) const
{
    _targets->releaseGLObjects(state);
    osg::Drawable::releaseGLObjects(state);
}

RenderStageFinish::RenderStageFinish(EyeDomeTargets* targets) : _targets(targets) {}

void RenderStageFinish::drawImplementation(osg::RenderInfo& renderInfo) const
{
    _targets->end(*renderInfo.getState());
}

EdlPreRender::EdlPreRender(EyeDomeTargets* targets, osg::Node* content)
{
    content->getOrCreateStateSet()->setRenderBinDetails(0, "RenderBin");
    addChild(makeStage(new RenderStageStart(targets), -1));
    addChild(content);
    addChild(makeStage(new RenderStageFinish(targets), 1));
    // The target needs all colours and depths, whatever the host set for its own.
    constexpr auto kAlways =
        osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;
    osg::StateSet& state = *getOrCreateStateSet();
    state.setAttributeAndModes(new osg::Depth, kAlways);
    state.setAttributeAndModes(new osg::ColorMask(true, true, true, true), kAlways);
}
