#include "render/EdlPostRender.h"

#include "render/PointPrograms.h"

#include <osg/NodeCallback>
#include <osg/Uniform>
#include <osgUtil/CullVisitor>

#include <cmath>

namespace {

/// Culls the content with the textures of the camera's target, their size and the kind of its projection.
class EDLResizeCallback : public osg::NodeCallback
{
public:
    explicit EDLResizeCallback(EyeDomeTargets* targets) : _targets(targets) {}

    void operator()(osg::Node* node, osg::NodeVisitor* visitor) override
    {
        osgUtil::CullVisitor* cull = visitor->asCullVisitor();
        const osg::ref_ptr<EyeDomeTarget> target = cull ? _targets->find(cull->getCurrentCamera()) : nullptr;
        if (!target) return;
        cull->pushStateSet(target->readingState(isPerspective(*cull->getProjectionMatrix())));
        traverse(node, visitor);
        cull->popStateSet();
    }

private:
    static bool isPerspective(const osg::Matrixd& projection)
    {
        double fieldOfView, aspect, zNear, zFar;
        return projection.getPerspective(fieldOfView, aspect, zNear, zFar);
    }

    osg::ref_ptr<EyeDomeTargets> _targets;
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
    // Overriding keeps out programs below, protection those of a host that overrides from above.
    state.setAttributeAndModes(pointProgram(PointProgram::EyeDome), osg::StateAttribute::ON |
                                                                        osg::StateAttribute::PROTECTED |
                                                                        osg::StateAttribute::OVERRIDE);
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
