#include "render/EdlPostRender.h"

#include "render/PointPrograms.h"

#include <osg/NodeCallback>
#include <osg/Uniform>
#include <osgUtil/CullVisitor>

#include <cmath>

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

/// Culls the content with the node's settings, and with the textures of the camera's target, their size and
/// the kind of its projection.
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
        const osg::ref_ptr<const osg::StateSet> settings =
            static_cast<EdlPostRender*>(node)->show(*target, perspective);
        cull->pushStateSet(settings);
        cull->pushStateSet(target->readingState(perspective));
        traverse(node, visitor);
        cull->popStateSet();
        cull->popStateSet();
    }

private:
    const osg::ref_ptr<EyeDomeTargets> _targets;
};

/// Whether they differ in textures at most.
bool haveSameSettings(const osg::StateSet& a, const osg::StateSet& b)
{
    return a.getUniformList() == b.getUniformList() && a.getAttributeList() == b.getAttributeList() &&
           a.getModeList() == b.getModeList() && a.getDefineList() == b.getDefineList() &&
           a.getRenderBinMode() == b.getRenderBinMode() && a.getBinNumber() == b.getBinNumber() &&
           a.getBinName() == b.getBinName();
}

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

osg::ref_ptr<const osg::StateSet> EdlPostRender::show(const EyeDomeTarget& target, bool perspective)
{
    const VelThreads::Lock lock(_mutex);
    osg::StateSet& state = *getOrCreateStateSet();
    if (state.getTextureAttribute(0, osg::StateAttribute::TEXTURE) != target.depth)
        setTextures(state, target);
    const auto set = [&state](const char* name, auto value) {
        if (osg::Uniform* uniform = state.getUniform(name)) uniform->set(value);
    };
    set("Sx", static_cast<float>(target.width));
    set("Sy", static_cast<float>(target.height));
    set("PerspectiveMode", perspective ? 1 : 0);
    if (!_drawn || !haveSameSettings(*_drawn, state)) {
        const osg::ref_ptr<osg::StateSet> drawn = new osg::StateSet(state); // shares uniforms and program
        for (const unsigned unit : {0u, 1u})
            drawn->removeTextureAttribute(unit, osg::StateAttribute::TEXTURE);
        _drawn = drawn;
    }
    return _drawn;
}

void EdlPostRender::accept(osg::NodeVisitor& visitor)
{
    if (!visitor.asCullVisitor() || !visitor.validNodeMask(*this) || !getCullCallback()) {
        osg::Group::accept(visitor);
        return;
    }
    // As a cull visitor does, but without the node's state set, which other cameras change.
    visitor.pushOntoNodePath(this);
    getCullCallback()->run(this, &visitor);
    visitor.popFromNodePath();
}

void EdlPostRender::traverse(osg::NodeVisitor& visitor)
{
    if (visitor.getVisitorType() == osg::NodeVisitor::CULL_VISITOR) osg::Group::traverse(visitor);
}

void EdlPostRender::resizeGLObjectBuffers(unsigned maxSize)
{
    const VelThreads::Lock lock(_mutex);
    osg::Group::resizeGLObjectBuffers(maxSize);
}

void EdlPostRender::releaseGLObjects(osg::State* state) const
{
    const VelThreads::Lock lock(_mutex);
    osg::Group::releaseGLObjects(state);
}
