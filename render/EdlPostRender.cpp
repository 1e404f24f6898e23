#include "render/EdlPostRender.h"

#include "render/PointPrograms.h"

#include <osg/NodeCallback>
#include <osg/Uniform>
#include <osg/observer_ptr>
#include <osgUtil/CullVisitor>

#include <cmath>
#include <mutex>

namespace {

bool isPerspective(const osg::Matrixd& projection)
{
    double fieldOfView, aspect, zNear, zFar;
    return projection.getPerspective(fieldOfView, aspect, zNear, zFar);
}

void setTextures(osg::StateSet& state, const EyeDomeTarget& target)
{
    state.setTextureAttributeAndModes(0, target.depth, osg::StateAttribute::ON);
    state.setTextureAttributeAndModes(1, target.color, osg::StateAttribute::ON);
}

/// Culls the content with the textures of the camera's target, their size and the kind of its projection. The
/// node's own state set shows the same to the host.
class EDLResizeCallback : public osg::NodeCallback
{
public:
    explicit EDLResizeCallback(EyeDomeTargets* targets) : _targets(targets) {}

    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        osgUtil::CullVisitor* cull = visitor->asCullVisitor();
        const osg::ref_ptr<EyeDomeTarget> target = cull ? _targets->find(cull->getCurrentCamera()) : nullptr;
        if (!target) return;
        const bool perspective = isPerspective(*cull->getProjectionMatrix());
        show(*node->getOrCreateStateSet(), *cull, *target, perspective);
        cull->pushStateSet(target->readingState(perspective));
        traverse(node, visitor);
        cull->popStateSet();
    }

private:
    /// Brings the node's state set up to date for the first camera that culls it in a frame. Draw threads
    /// read its lists, though they draw with what was pushed for their own camera: once a camera of a frame
    /// has culled, it may be drawing, and the textures are left alone. All draws of the frame before have
    /// ended, as the state set is dynamic.
    void show(osg::StateSet& state, osgUtil::CullVisitor& cull, const EyeDomeTarget& target, bool perspective)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        const osg::FrameStamp* stamp = cull.getFrameStamp();
        const unsigned frame = stamp ? stamp->getFrameNumber() : 0;
        const osg::Camera* camera = cull.getCurrentCamera();
        if (_camera.valid() && _camera.get() != camera && _frame == frame) return;
        _camera = camera;
        _frame = frame;
        if (state.getTextureAttribute(0, osg::StateAttribute::TEXTURE) != target.depth)
            setTextures(state, target);
        const auto set = [&state](const char* name, auto value) {
            if (osg::Uniform* uniform = state.getUniform(name)) uniform->set(value);
        };
        set("Sx", static_cast<float>(target.width));
        set("Sy", static_cast<float>(target.height));
        set("PerspectiveMode", perspective ? 1 : 0);
    }

    const osg::ref_ptr<EyeDomeTargets> _targets;
    std::mutex _mutex;
    osg::observer_ptr<const osg::Camera> _camera; ///< the first of the last frame; guarded by _mutex
    unsigned _frame = 0;                          ///< guarded by _mutex
};

osg::ref_ptr<osg::Uniform> neighbourDirections()
{
    constexpr unsigned kNeighbours = 8;
    osg::ref_ptr<osg::Uniform> directions =
        new osg::Uniform(osg::Uniform::FLOAT_VEC2, "Neigh_pos_2D", kNeighbours);
    for (unsigned i = 0; i < kNeighbours; ++i) {
        const double angle = i * 3.1415926 * 0.25;
        directions->setElement(
            i, osg::Vec2f(static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))));
    }
    return directions;
}

} // namespace

EdlPostRender::EdlPostRender(EyeDomeTargets* targets, osg::Node* content)
{
    addChild(content);
    setCullCallback(new EDLResizeCallback(targets));
    osg::StateSet& state = *getOrCreateStateSet();
    state.setDataVariance(osg::Object::DYNAMIC); // culling changes it
    state.setAttributeAndModes(pointProgram(PointProgram::EyeDome),
                               osg::StateAttribute::ON | osg::StateAttribute::PROTECTED);
    const osg::ref_ptr<EyeDomeTarget> initial = new EyeDomeTarget(960, 512, 512);
    setTextures(state, *initial);
    for (osg::Uniform* uniform :
         {new osg::Uniform("s1_color", 1), new osg::Uniform("s2_depth", 0), new osg::Uniform("Sx", 512.0f),
          new osg::Uniform("Sy", 512.0f), new osg::Uniform("radius", 2.0f),
          new osg::Uniform("edlStrength", 2.0f), new osg::Uniform("PerspectiveMode", 0),
          new osg::Uniform("Zm", 1.0f), new osg::Uniform("ZM", 0.0f)})
        state.addUniform(uniform, osg::StateAttribute::ON);
    state.addUniform(neighbourDirections(), osg::StateAttribute::ON);
}

void EdlPostRender::traverse(osg::NodeVisitor& visitor)
{
    if (visitor.getVisitorType() == osg::NodeVisitor::CULL_VISITOR) osg::Group::traverse(visitor);
}
