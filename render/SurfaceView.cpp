#include <VelOsgDBBrx/SurfaceView.h>

#include "render/OpenGLSupport.h"
#include "render/PointPrograms.h"
#include "render/StorageBuffer.h"
#include "render/SurfacePass.h"
#include "render/SurfaceScope.h"
#include "render/SurfaceTarget.h"

#include <osg/BlendFunc>
#include <osg/Depth>
#include <osg/Math>
#include <osg/Uniform>
#include <osg/ValueObject>
#include <osgUtil/CullVisitor>

#include <array>
#include <cmath>
#include <cstring>

namespace VelOsgDBBrx {

namespace {

/// Places among the bins of what is drawn: the points follow, in bins of their own.
constexpr int kBeginBin = -3;
constexpr int kSampleBin = -2;
constexpr int kFinishBin = -1;

/// Of a camera, which then has it; a user value.
constexpr char kLacksSurfaces[] = "VelOsgDBBrx.lacksSurfaces";

constexpr osg::StateAttribute::OverrideValue kFirm =
    osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;

osg::ref_ptr<osg::Uniform> classUniform(const std::bitset<256>& classes)
{
    constexpr unsigned kBits = 32;
    std::array<uint32_t, 256 / kBits> bits{};
    for (unsigned code = 0; code < classes.size(); ++code)
        bits[code / kBits] |= uint32_t(classes[code]) << code % kBits;
    osg::ref_ptr<osg::Uniform> uniform = new osg::Uniform(osg::Uniform::INT, "surfaceClasses", 256 / kBits);
    for (unsigned i = 0; i < bits.size(); ++i)
        uniform->setElement(i, static_cast<int>(bits[i]));
    return uniform;
}

/// What holds for the points of a surface, whatever holds for their clouds otherwise.
osg::ref_ptr<osg::StateSet> makeSampleState(const SurfaceSettings& settings)
{
    osg::ref_ptr<osg::StateSet> state = new osg::StateSet;
    state->setAttributeAndModes(pointProgram(PointProgram::Surface), osg::StateAttribute::ON | kFirm);
    state->setMode(GL_VERTEX_PROGRAM_POINT_SIZE, osg::StateAttribute::ON | kFirm);
    state->setMode(GL_BLEND, osg::StateAttribute::OFF | kFirm);
    state->setAttributeAndModes(new osg::Depth, osg::StateAttribute::ON | kFirm);
    state->addUniform(classUniform(settings.classes), kFirm);
    state->addUniform(new osg::Uniform("pointSize", 1), kFirm);
    return state;
}

osg::Vec3f towardsSun(const SurfaceSettings& settings)
{
    const double east = osg::DegreesToRadians(90 - settings.sunAzimuth);
    const double up = osg::DegreesToRadians(settings.sunHeight);
    return osg::Vec3f(osg::Vec3d(std::cos(east) * std::cos(up), std::sin(east) * std::cos(up), std::sin(up)));
}

/// How a camera sees heights: what the eye's own height leaves after whole groups of five contour lines is
/// small, so that floats hold it in any coordinate system.
void addHeights(osg::StateSet& state, const osg::Matrixd& toWorld, double interval)
{
    const double origin = toWorld(3, 2);
    const double period = 5 * interval;
    const double rest = period > 0 ? origin - period * std::floor(origin / period) : 0;
    state.addUniform(new osg::Uniform("eyeHeight", static_cast<float>(origin)), kFirm);
    state.addUniform(new osg::Uniform("contourPhase", static_cast<float>(rest)), kFirm);
    state.addUniform(new osg::Uniform("contourInterval", static_cast<float>(interval)), kFirm);
}

} // namespace

class SurfaceView::Impl
{
public:
    bool active = false;
    SurfaceSettings settings;
    SurfaceTargets targets;

    Impl()
    {
        for (const auto& [state, bin] : {std::pair(_beginState, kBeginBin), {_finishState, kFinishBin}})
            state->setRenderBinDetails(bin, "RenderBin");
        set(settings);
    }

    void set(const SurfaceSettings& wanted)
    {
        settings = wanted;
        _sampleState = makeSampleState(wanted);
        _pointState = new osg::StateSet;
        _pointState->setDefine("LEAVES_OUT_SURFACE");
        _pointState->addUniform(classUniform(wanted.classes));
        _constantState = new osg::StateSet;
        if (!settings.heights) return;
        const std::vector<ColorEntry>& palette = settings.heights->entries;
        _constantState->setDefine("HAS_PALETTE");
        const auto bytes = static_cast<unsigned>(palette.size() * sizeof(ColorEntry));
        osg::ref_ptr<osg::UByteArray> gradient = new osg::UByteArray(bytes);
        std::memcpy(&gradient->front(), palette.data(), bytes);
        bindStorageBuffer(*_constantState, StorageBuffer::Gradient, gradient);
    }

    /// What all passes of a camera's surface need to know.
    osg::ref_ptr<osg::StateSet> cameraState(const osg::Camera& camera, const osg::Viewport& viewport) const
    {
        const osg::Matrixd toWorld = osg::Matrixd::inverse(camera.getViewMatrix());
        osg::ref_ptr<osg::StateSet> state = new osg::StateSet(*_constantState);
        const auto add = [&](const char* name, const auto& value) {
            state->addUniform(new osg::Uniform(name, value), kFirm);
        };
        addHeights(*state, toWorld, settings.contourInterval);
        add("worldFromEye", osg::Matrixf(toWorld));
        add("towardsSun", towardsSun(settings));
        add("closing", static_cast<float>(settings.closing));
        add("viewportArea",
            osg::Vec4f(osg::Vec4d(viewport.x(), viewport.y(), viewport.width(), viewport.height())));
        if (settings.heights) add("elevationEntry", settings.heights->range);
        return state;
    }

    /// Adds both ends of a pass to what is drawn, and gives what its clouds need to know.
    osg::ref_ptr<SurfaceScope> addPass(osgUtil::CullVisitor& cull)
    {
        osg::Camera& camera = *cull.getCurrentCamera();
        const osg::Viewport& viewport = *cull.getViewport();
        const osg::ref_ptr<SurfaceTarget> target = targets.fit(camera, viewport);
        if (!target) return new SurfaceScope;
        const osg::ref_ptr<SurfacePass> pass = new SurfacePass(target, cameraState(camera, viewport));
        add(cull, *_beginState, new SurfacePassEnd(pass, SurfacePassEnd::BEGIN));
        add(cull, *_finishState, new SurfacePassEnd(pass, SurfacePassEnd::FINISH));
        osgUtil::RenderBin* bin = cull.getCurrentRenderBin()->find_or_insert(kSampleBin, "RenderBin");
        return new SurfaceScope(*bin, _sampleState, settings.otherPoints ? _pointState.get() : nullptr);
    }

    void releaseGLObjects(osg::State* state)
    {
        targets.releaseGLObjects(state);
        for (const osg::ref_ptr<osg::StateSet>& kept : {_sampleState, _pointState, _constantState})
            kept->releaseGLObjects(state);
    }

private:
    static void add(osgUtil::CullVisitor& cull, const osg::StateSet& state, osg::Drawable* drawable)
    {
        const osg::ref_ptr<osg::Drawable> kept = drawable;
        cull.pushStateSet(&state);
        cull.addDrawable(drawable, cull.getModelViewMatrix());
        cull.popStateSet();
    }

    const osg::ref_ptr<osg::StateSet> _beginState = new osg::StateSet;
    const osg::ref_ptr<osg::StateSet> _finishState = new osg::StateSet;
    osg::ref_ptr<osg::StateSet> _sampleState; ///< these are of the settings, and never changed once made
    osg::ref_ptr<osg::StateSet> _pointState;
    osg::ref_ptr<osg::StateSet> _constantState;
};

SurfaceView::SurfaceView() : _impl(std::make_unique<Impl>()) {}

SurfaceView::SurfaceView(const SurfaceView& other, const osg::CopyOp& copyOp)
    : osg::Group(other, copyOp), _impl(std::make_unique<Impl>())
{
    _impl->active = other.isActive();
    _impl->set(other.settings());
}

SurfaceView::~SurfaceView() = default;

void SurfaceView::setActive(bool active)
{
    _impl->active = active;
}

bool SurfaceView::isActive() const
{
    return _impl->active;
}

void SurfaceView::setSettings(const SurfaceSettings& settings)
{
    _impl->set(settings);
}

const SurfaceSettings& SurfaceView::settings() const
{
    return _impl->settings;
}

void SurfaceView::setShownTo(osg::Camera& camera, bool shown)
{
    if (shown != isShownTo(camera)) camera.setUserValue(kLacksSurfaces, !shown);
}

bool SurfaceView::isShownTo(const osg::Camera& camera)
{
    bool lacks = false;
    return !camera.getUserValue(kLacksSurfaces, lacks) || !lacks;
}

void SurfaceView::traverse(osg::NodeVisitor& visitor)
{
    osgUtil::CullVisitor* cull = visitor.asCullVisitor();
    if (!cull || !_impl->active || isKnownToLackOpenGL(*cull->getState())) {
        osg::Group::traverse(visitor);
        return;
    }
    const bool pointsAlone =
        isOccluderInForce(*cull->getCurrentStateGraph()) || !isShownTo(*cull->getCurrentCamera());
    const osg::ref_ptr<SurfaceScope> scope =
        pointsAlone ? osg::ref_ptr<SurfaceScope>(new SurfaceScope) : _impl->addPass(*cull);
    cull->pushStateSet(scope);
    osg::Group::traverse(visitor);
    cull->popStateSet();
}

void SurfaceView::resizeGLObjectBuffers(unsigned maxSize)
{
    _impl->targets.resizeGLObjectBuffers(maxSize);
    osg::Group::resizeGLObjectBuffers(maxSize);
}

void SurfaceView::releaseGLObjects(osg::State* state) const
{
    _impl->releaseGLObjects(state);
    osg::Group::releaseGLObjects(state);
}

} // namespace VelOsgDBBrx
