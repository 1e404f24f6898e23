#include <VelOsgDBBrx/PointCloudHelper.h>

#include "render/PointCloudViewerVisitor.h"
#include "render/PointSpacing.h"
#include "render/StorageBuffer.h"

#include <VelOsgDBBrx/IPointCloud.h>

#include <osg/Math>
#include <osg/Uniform>

#include <algorithm>
#include <cmath>

namespace VelOsgDBBrx {

namespace {

constexpr size_t kClipBoxPlanes = 8;

constexpr float kHeadLight = 1; ///< values of "normalLight".w
constexpr float kSunLight = 2;

/// The node's state set, which draw threads may be reading: dynamic, so that they are waited for.
osg::StateSet& changeableState(osg::Node& node)
{
    osg::StateSet& state = *node.getOrCreateStateSet();
    state.setDataVariance(osg::Object::DYNAMIC);
    return state;
}

template <typename Value>
void setUniform(osg::Node& node, const char* name, const Value& value)
{
    changeableState(node).addUniform(new osg::Uniform(name, value), osg::StateAttribute::ON);
}

/// Overrides what the second pass of eye-dome lighting has of its own, below the node. Protected, so that a
/// cloud's setting holds against one above it.
void setShading(osg::Node& node, float strength, float radius, bool balanced)
{
    constexpr osg::StateAttribute::OverrideValue kHolds =
        osg::StateAttribute::ON | osg::StateAttribute::OVERRIDE | osg::StateAttribute::PROTECTED;
    osg::StateSet& state = changeableState(node);
    state.addUniform(new osg::Uniform("edlStrength", strength), kHolds);
    state.addUniform(new osg::Uniform("radius", radius), kHolds);
    state.addUniform(new osg::Uniform("edlBalanced", balanced), kHolds);
}

float adjust(float channel, float brightness, float contrast)
{
    return std::clamp((channel - 0.5f) * contrast + 0.5f + brightness, 0.0f, 1.0f);
}

} // namespace

void PointCloudHelper::setPointSize(osg::Node* node, int pixels)
{
    if (node) setUniform(*node, "pointSize", pixels);
}

void PointCloudHelper::setPointSizeBySpacing(osg::Node* node, double factor, int smallest, int largest)
{
    if (node) setSpacingSizes(changeableState(*node), factor, smallest, largest);
}

void PointCloudHelper::setPointCloudId(osg::Node* node, uint64_t id)
{
    if (!node) return;
    setUniform(*node, "lpcID", static_cast<unsigned>(id & 0xFFFFFFFFu));
    setUniform(*node, "rpcID", static_cast<unsigned>(id >> 32));
}

void PointCloudHelper::setBrightnessContrast(osg::Node* node, float brightness, float contrast)
{
    std::array<float, 256> table;
    for (size_t level = 0; level < table.size(); ++level)
        table[level] = 255.0f * adjust(static_cast<float>(level) / 255.0f, brightness, contrast);
    setBrightnessTable(node, table);
}

void PointCloudHelper::setBrightnessTable(osg::Node* node, const std::array<float, 256>& table)
{
    if (!node) return;
    osg::ref_ptr<osg::Uniform> uniform =
        new osg::Uniform(osg::Uniform::FLOAT, "BrightWithContrast", static_cast<int>(table.size()));
    for (size_t level = 0; level < table.size(); ++level)
        uniform->setElement(static_cast<unsigned>(level), table[level]);
    changeableState(*node).addUniform(uniform, osg::StateAttribute::ON);
    setUniform(*node, "isUseBCTable", true);
}

void PointCloudHelper::resetBrightness(osg::Node* node)
{
    if (node) setUniform(*node, "isUseBCTable", false);
}

void PointCloudHelper::setEyeDomeLighting(osg::Node* node, float strength, float radius)
{
    if (node) setShading(*node, strength, radius, false);
}

void PointCloudHelper::setBalancedEyeDomeLighting(osg::Node* node, float strength, float radius)
{
    if (node) setShading(*node, strength, radius, true);
}

void PointCloudHelper::setHeadLight(osg::Node* node)
{
    if (node) setUniform(*node, "normalLight", osg::Vec4f(0, 0, 0, kHeadLight));
}

void PointCloudHelper::setSunLight(osg::Node* node, double azimuth, double height)
{
    if (!node) return;
    const double east = osg::DegreesToRadians(90 - azimuth);
    const double up = osg::DegreesToRadians(height);
    const osg::Vec3d sun(std::cos(east) * std::cos(up), std::sin(east) * std::cos(up), std::sin(up));
    setUniform(*node, "normalLight", osg::Vec4f(osg::Vec3f(sun), kSunLight));
}

void PointCloudHelper::setLightOff(osg::Node* node)
{
    if (node) setUniform(*node, "normalLight", osg::Vec4f());
}

void PointCloudHelper::hideCulledPoints(osg::Node* node)
{
    if (node) setUniform(*node, "activeCullModel", true);
}

void PointCloudHelper::showCulledPoints(osg::Node* node, const osg::Vec4f& color)
{
    if (!node) return;
    setUniform(*node, "activeCullModel", false);
    setUniform(*node, "cullColor", color);
}

void PointCloudHelper::setClipBox(osg::Node* node, const osg::BoundingBoxd& box)
{
    std::vector<osg::Vec4d> planes;
    if (box.valid())
        planes = {osg::Vec4d(1, 0, 0, -box.xMin()), osg::Vec4d(-1, 0, 0, box.xMax()),
                  osg::Vec4d(0, 1, 0, -box.yMin()), osg::Vec4d(0, -1, 0, box.yMax()),
                  osg::Vec4d(0, 0, 1, -box.zMin()), osg::Vec4d(0, 0, -1, box.zMax())};
    setClipBox(node, planes);
}

bool PointCloudHelper::setClipBox(osg::Node* node, const std::vector<osg::Vec4d>& planes)
{
    if (planes.size() > kClipBoxPlanes) return false;
    if (!node) return true;
    const osg::Vec4d everything; // a plane of zeros has all points inside
    osg::ref_ptr<osg::Uniform> uniform =
        new osg::Uniform(osg::Uniform::DOUBLE_VEC4, "clipPlane", kClipBoxPlanes);
    for (size_t i = 0; i < kClipBoxPlanes; ++i)
        uniform->setElement(static_cast<unsigned>(i), i < planes.size() ? planes[i] : everything);
    changeableState(*node).addUniform(uniform, osg::StateAttribute::ON);
    setUniform(*node, "activeDClipPlane", !planes.empty());
    return true;
}

bool PointCloudHelper::setSectionPlanes(osg::Node* node, const std::vector<osg::Vec4f>& planes,
                                        int planesPerGroup, const osg::Vec4d& offset)
{
    if (planesPerGroup < 1 || planes.empty() || planes.size() % static_cast<size_t>(planesPerGroup) != 0)
        return false;
    if (!node) return true;
    bindStorageBuffer(changeableState(*node), StorageBuffer::SectionPlanes,
                      new osg::Vec4Array(planes.begin(), planes.end()));
    setUniform(*node, "sectionNum", planesPerGroup);
    setUniform(*node, "sectionOffset", offset);
    setUniform(*node, "isUseSectionPlane", true);
    return true;
}

void PointCloudHelper::clearSectionPlanes(osg::Node* node)
{
    if (!node) return;
    unbindStorageBuffer(changeableState(*node), StorageBuffer::SectionPlanes);
    setUniform(*node, "isUseSectionPlane", false);
}

void PointCloudHelper::setNormalFilter(osg::Node* node, bool active)
{
    if (node) setUniform(*node, "activeNormal", active);
}

void PointCloudHelper::setShownClasses(osg::Node* node, const std::bitset<256>& classes)
{
    if (!node) return;
    constexpr unsigned kBits = 32;
    std::array<uint32_t, 256 / kBits> hidden{};
    for (unsigned code = 0; code < classes.size(); ++code)
        hidden[code / kBits] |= uint32_t(!classes[code]) << code % kBits;
    osg::ref_ptr<osg::Uniform> uniform =
        new osg::Uniform(osg::Uniform::INT, "hiddenClasses", static_cast<int>(hidden.size()));
    for (unsigned i = 0; i < hidden.size(); ++i)
        uniform->setElement(i, static_cast<int>(hidden[i]));
    changeableState(*node).addUniform(uniform, osg::StateAttribute::ON);
    setUniform(*node, "activeClassFilter", !classes.all());
}

void PointCloudHelper::setEnhancedLine(osg::Node* node, const std::vector<osg::Vec2f>& polygon,
                                       const osg::Vec4f& color, int pixels)
{
    if (!node) return;
    if (polygon.empty()) return clearEnhancedLine(node);
    bindStorageBuffer(changeableState(*node), StorageBuffer::LinePolygon,
                      new osg::Vec2Array(polygon.begin(), polygon.end()));
    setUniform(*node, "lineEnHancementColor", color);
    setUniform(*node, "lineEnHancementPointSize", pixels);
    setUniform(*node, "activelineEnHancement", true);
}

void PointCloudHelper::clearEnhancedLine(osg::Node* node)
{
    if (!node) return;
    unbindStorageBuffer(changeableState(*node), StorageBuffer::LinePolygon);
    setUniform(*node, "activelineEnHancement", false);
}

void PointCloudHelper::setClipPlane(osg::Node* node, const std::vector<osg::Vec4d>& planes)
{
    if (!node) return;
    PointCloudViewerVisitor visitor([&planes](IPointCloud& cloud) { cloud.setPlanes(planes); });
    node->accept(visitor);
}

} // namespace VelOsgDBBrx
