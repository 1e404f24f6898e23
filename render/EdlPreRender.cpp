#include "render/EdlPreRender.h"

#include "render/EyeDomeReach.h"

#include <osg/BlendFunc>
#include <osg/Depth>
#include <osg/Geode>
#include <osg/RenderInfo>
#include <osg/State>
#include <osg/Viewport>
#include <osgUtil/CullVisitor>

#include <algorithm>
#include <optional>

namespace {

/// Keeps the target of the camera that culls at the size of its viewport.
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
        _targets->fit(*camera, *viewport);
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

/// Pixels of the target.
struct PixelArea
{
    int left, bottom, right, top;
};

/// What the second pass may read of points in `bounds`. Empty when a corner lies behind the eye: then it may
/// be everywhere.
std::optional<PixelArea> pixelsOf(const osg::BoundingBox& bounds, const osg::State& state)
{
    const osg::Viewport* viewport = state.getCurrentViewport();
    if (!viewport || !bounds.valid()) return std::nullopt;
    const osg::Matrixd toClip = state.getModelViewMatrix() * state.getProjectionMatrix();
    const osg::Matrixd toWindow = viewport->computeWindowMatrix();
    osg::BoundingBoxd window;
    for (unsigned i = 0; i < 8; ++i) {
        const osg::Vec4d corner = osg::Vec4d(bounds.corner(i), 1.0) * toClip;
        if (corner.w() <= 0) return std::nullopt;
        window.expandBy(osg::Vec3d(corner.x(), corner.y(), corner.z()) / corner.w() * toWindow);
    }
    const double margin = EyeDomeReach::in(state);
    const auto pixel = [](double place, double from, double size) {
        return static_cast<int>(std::clamp(place, from, from + size));
    };
    return PixelArea{pixel(window.xMin() - margin, viewport->x(), viewport->width()),
                     pixel(window.yMin() - margin, viewport->y(), viewport->height()),
                     pixel(window.xMax() + margin + 1, viewport->x(), viewport->width()),
                     pixel(window.yMax() + margin + 1, viewport->y(), viewport->height())};
}

void clear()
{
    glClearColor(1.0f, 1.0f, 1.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

/// Clears an area and leaves the scissor as it was.
void clear(const PixelArea& area)
{
    GLint before[4];
    glGetIntegerv(GL_SCISSOR_BOX, before);
    glEnable(GL_SCISSOR_TEST);
    glScissor(area.left, area.bottom, area.right - area.left, area.top - area.bottom);
    clear();
    glScissor(before[0], before[1], before[2], before[3]);
    glDisable(GL_SCISSOR_TEST);
}

} // namespace

RenderStageStart::RenderStageStart(EyeDomeTargets* targets, const osg::BoundingBox& bounds)
    : _targets(targets), _bounds(bounds)
{
    setCullCallback(new WindowResizeEventHandler(targets));
    getOrCreateStateSet()->setRenderBinDetails(-1, "RenderBin");
}

void RenderStageStart::drawImplementation(osg::RenderInfo& renderInfo) const
{
    const osg::ref_ptr<EyeDomeTarget> target = _targets->find(renderInfo.getCurrentCamera());
    if (!target) return;
    const bool isFirst = _targets->begin(*target, *renderInfo.getState());
    const std::optional<PixelArea> area = pixelsOf(_bounds, *renderInfo.getState());
    if (isFirst || !area || glIsEnabled(GL_SCISSOR_TEST))
        clear();
    else
        clear(*area);
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

EdlPreRender::EdlPreRender(EyeDomeTargets* targets, osg::Node* content, const osg::BoundingBox& bounds)
{
    content->getOrCreateStateSet()->setRenderBinDetails(0, "RenderBin");
    addChild(makeStage(new RenderStageStart(targets, bounds), -1));
    addChild(content);
    addChild(makeStage(new RenderStageFinish(targets), 1));
    // The target needs all depths, whatever the host set for its own.
    getOrCreateStateSet()->setAttributeAndModes(new osg::Depth, osg::StateAttribute::ON |
                                                                    osg::StateAttribute::OVERRIDE |
                                                                    osg::StateAttribute::PROTECTED);
}
