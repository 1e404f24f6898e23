#include <VelOsgDBBrx/LineHighlight.h>

#include <osg/Array>
#include <osg/BufferIndexBinding>
#include <osg/BufferObject>
#include <osg/StateSet>
#include <osg/Uniform>

#include <algorithm>

namespace VelOsgDBBrx {

namespace {

constexpr unsigned int kLineBuffer = 6;
constexpr double kMiterLimit = 4; ///< half widths; a sharper bend is cut

/// Unit vector to the left of the way from `a` to `b`.
osg::Vec2d leftOf(const osg::Vec2d& a, const osg::Vec2d& b)
{
    osg::Vec2d left(a.y() - b.y(), b.x() - a.x());
    left.normalize();
    return left;
}

/// From a vertex to the left side of a line that bends there, for a line of half width 1.
osg::Vec2d miter(const osg::Vec2d& leftBefore, const osg::Vec2d& leftAfter)
{
    osg::Vec2d direction = leftBefore + leftAfter;
    if (direction.normalize() == 0) return leftAfter;
    return direction * std::min(1 / (direction * leftAfter), kMiterLimit);
}

void setUniforms(osg::Node& node, bool active)
{
    osg::StateSet* stateSet = node.getOrCreateStateSet();
    stateSet->setDataVariance(osg::Object::DYNAMIC); // no frame is drawn while it changes
    stateSet->addUniform(new osg::Uniform("activelineEnHancement", active), osg::StateAttribute::ON);
}

} // namespace

std::vector<osg::Vec2d> LineHighlight::outline(const std::vector<osg::Vec2d>& polyline, double width)
{
    std::vector<osg::Vec2d> line = polyline;
    line.erase(std::unique(line.begin(), line.end()), line.end());
    if (line.size() < 2 || !(width > 0)) return {};

    std::vector<osg::Vec2d> left;
    std::vector<osg::Vec2d> right;
    for (size_t i = 0; i < line.size(); ++i) {
        const osg::Vec2d before = leftOf(line[i == 0 ? 0 : i - 1], line[i == 0 ? 1 : i]);
        const osg::Vec2d after = i + 1 == line.size() ? before : leftOf(line[i], line[i + 1]);
        const osg::Vec2d side = miter(before, after) * (width / 2);
        left.push_back(line[i] + side);
        right.push_back(line[i] - side);
    }
    left.insert(left.end(), right.rbegin(), right.rend());
    return left;
}

void LineHighlight::show(osg::Node* node, const std::vector<osg::Vec2d>& polygon, const osg::Vec4f& color,
                         int pointSize)
{
    if (!node) return;
    if (polygon.size() < 3) {
        hide(node);
        return;
    }
    osg::ref_ptr<osg::Vec2Array> vertices = new osg::Vec2Array;
    for (const osg::Vec2d& vertex : polygon)
        vertices->push_back(osg::Vec2f(vertex));
    vertices->setBufferObject(new osg::ShaderStorageBufferObject);

    setUniforms(*node, true);
    osg::StateSet* stateSet = node->getStateSet();
    stateSet->setAttributeAndModes(
        new osg::ShaderStorageBufferBinding(kLineBuffer, vertices, 0, vertices->getTotalDataSize()),
        osg::StateAttribute::ON);
    stateSet->addUniform(new osg::Uniform("lineEnHancementColor", color), osg::StateAttribute::ON);
    stateSet->addUniform(new osg::Uniform("lineEnHancementPointSize", pointSize), osg::StateAttribute::ON);
}

void LineHighlight::hide(osg::Node* node)
{
    if (!node) return;
    setUniforms(*node, false);
    node->getStateSet()->removeAttribute(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, kLineBuffer);
}

} // namespace VelOsgDBBrx
