#include <VelOsgDBBrx/ShaderHelper.h>

#include "loading/ModelMatrix.h"
#include "render/PointCloudViewerVisitor.h"
#include "render/PointPrograms.h"
#include "render/StorageBuffer.h"

#include <VelThreads/Mutex.h>

#include <osg/Array>
#include <osg/StateSet>
#include <osg/Uniform>

#include <algorithm>
#include <cstring>

#ifndef GL_VERTEX_PROGRAM_POINT_SIZE
#define GL_VERTEX_PROGRAM_POINT_SIZE 0x8642
#endif

namespace VelOsgDBBrx {

namespace {

constexpr unsigned kTableSize = 256;
const osg::Vec4f kOutsideTable(0, 0, 0, 1);

VelThreads::Mutex selectColorMutex;
osg::Vec4f selectColor VEL_GUARDED_BY(selectColorMutex) = {1.0f, 0.0f, 0.615f, 1.0f};

/// The state set of a node, changed to a colour mode.
class ModeState
{
public:
    ModeState(osg::Node& node, PointProgram program) : _state(*node.getOrCreateStateSet())
    {
        _state.setDataVariance(osg::Object::DYNAMIC); // draw threads may be reading it
        _state.setAttributeAndModes(pointProgram(program), osg::StateAttribute::ON);
        _state.setMode(GL_VERTEX_PROGRAM_POINT_SIZE, osg::StateAttribute::ON);
    }

    template <typename... Value>
    void set(const char* name, const Value&... value)
    {
        add(new osg::Uniform(name, value...));
    }

    void setSelectColor() { set("selectColor", ShaderHelper::getSelectColor()); }

    void setColorTable(const std::vector<osg::Vec4f>& table)
    {
        osg::ref_ptr<osg::Uniform> colors =
            new osg::Uniform(osg::Uniform::FLOAT_VEC4, "colorArr", kTableSize);
        for (unsigned i = 0; i < kTableSize; ++i)
            colors->setElement(i, i < table.size() ? table[i] : kOutsideTable);
        add(colors);
    }

    void setSteps(const std::vector<ColorScale::ColorScaleElement>& elements)
    {
        std::vector<osg::Vec4f> table;
        osg::ref_ptr<osg::Uniform> steps = new osg::Uniform(osg::Uniform::FLOAT, "stepArr", kTableSize);
        for (unsigned i = 0; i < kTableSize; ++i)
            steps->setElement(i, i < elements.size() ? static_cast<float>(elements[i].value) : 0.0f);
        for (const ColorScale::ColorScaleElement& element : elements)
            table.push_back(element.color);
        setColorTable(table);
        add(steps);
    }

    void setGradient(const ColorWithRangeInfo& info)
    {
        const size_t size = info.entries.size() * sizeof(ColorEntry);
        osg::ref_ptr<osg::UByteArray> bytes = new osg::UByteArray(static_cast<unsigned>(size));
        std::memcpy(&bytes->front(), info.entries.data(), size);
        bindStorageBuffer(_state, StorageBuffer::Gradient, bytes);
        set("elevationEntry", info.range);
    }

    void setMarkColors(const std::vector<osg::Vec4f>& colors)
    {
        bindStorageBuffer(_state, StorageBuffer::MarkColors,
                          new osg::Vec4Array(colors.begin(), colors.end()));
    }

private:
    void add(osg::Uniform* uniform) { _state.addUniform(uniform, osg::StateAttribute::ON); }

    osg::StateSet& _state;
};

void applyTableMode(osg::Node* node, PointProgram program, const std::vector<osg::Vec4f>& table)
{
    if (!node) return;
    ModeState state(*node, program);
    state.setColorTable(table);
    state.setSelectColor();
}

/// Gives each drawable below a node its "modelMatrix", unless it has a draw callback already.
class ModelMatrixVisitor : public osg::NodeVisitor
{
public:
    ModelMatrixVisitor() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) { setNodeMaskOverride(~0u); }

    void apply(osg::Drawable& drawable) override
    {
        if (!drawable.getDrawCallback()) drawable.setDrawCallback(_modelMatrix);
    }

private:
    const osg::ref_ptr<ModelMatrix> _modelMatrix = new ModelMatrix;
};

ModeState applyMeshMode(osg::Node& node, PointProgram program)
{
    ModelMatrixVisitor visitor;
    node.accept(visitor);
    return ModeState(node, program);
}

bool isGradient(const ColorWithRangeInfo& info)
{
    return info.entries.size() >= 2;
}

} // namespace

void ShaderHelper::originColorShader(osg::Node* node)
{
    if (!node) return;
    ModeState(*node, PointProgram::Origin).setSelectColor();
}

void ShaderHelper::singleColorShader(osg::Node* node, const osg::Vec4f& color)
{
    if (!node) return;
    ModeState state(*node, PointProgram::Single);
    state.set("fileColor", color);
    state.setSelectColor();
}

void ShaderHelper::intensityShader(osg::Node* node, ColorWithRangeInfo& info)
{
    if (!node || !isGradient(info)) return;
    ModeState state(*node, PointProgram::Intensity);
    state.setSelectColor();
    state.setGradient(info);
}

void ShaderHelper::elevationColorShader(osg::Node* node, ColorWithRangeInfo& info, bool blendIntensity)
{
    if (!node || !isGradient(info)) return;
    constexpr float kFullIntensity = 65535.0f;
    const float span = static_cast<float>(info.intensityMax - info.intensityMin);
    ModeState state(*node, PointProgram::Elevation);
    state.setSelectColor();
    state.setGradient(info);
    state.set("intensityPair",
              osg::Vec2f(static_cast<float>(info.intensityMin) / kFullIntensity, span / kFullIntensity));
    state.set("isCircle", info.isCircle);
    state.set("blendIntensity", blendIntensity);
}

void ShaderHelper::elevationColorShaderWithLight(osg::Node* node, ColorWithRangeInfo& info)
{
    if (!node || !isGradient(info)) return;
    ModeState state = applyMeshMode(*node, PointProgram::ElevationLit);
    state.setGradient(info);
    state.set("isCircle", info.isCircle);
}

void ShaderHelper::classificationColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors)
{
    applyTableMode(node, PointProgram::Classification, colors);
}

void ShaderHelper::classificationColorShaderWithLight(osg::Node* node, std::vector<osg::Vec4f>& colors)
{
    if (!node) return;
    applyMeshMode(*node, PointProgram::ClassificationLit).setColorTable(colors);
}

void ShaderHelper::pointSourceIDColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors)
{
    applyTableMode(node, PointProgram::PointSource, colors);
}

void ShaderHelper::returnNumberColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors)
{
    applyTableMode(node, PointProgram::ReturnNumber, colors);
}

void ShaderHelper::numbersReturnColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors)
{
    applyTableMode(node, PointProgram::NumberOfReturns, colors);
}

void ShaderHelper::flightLineColorShader(osg::Node* node, std::vector<osg::Vec4f>& colors)
{
    applyTableMode(node, PointProgram::FlightLine, colors);
}

void ShaderHelper::gpsTimeColorShader(osg::Node* node, ColorScale& scale)
{
    if (!node || scale.getColorScaleElementCount() < 2) return;
    ModeState state(*node, PointProgram::GpsTime);
    state.setSteps(scale.getAllColorScaleElements());
    state.setSelectColor();
}

void ShaderHelper::changedColorShader(osg::Node* node, const std::vector<osg::Vec4f>& colors)
{
    if (!node || colors.empty()) return;
    ModeState state(*node, PointProgram::Changed);
    state.setMarkColors(colors);
    state.setSelectColor();
}

void ShaderHelper::setSelectColor(const osg::Vec4f& color)
{
    const VelThreads::Lock lock(selectColorMutex);
    selectColor = color;
}

osg::Vec4f ShaderHelper::getSelectColor()
{
    const VelThreads::Lock lock(selectColorMutex);
    return selectColor;
}

void ShaderHelper::applySelectColor(osg::Node* node)
{
    osg::StateSet* state = node ? node->getStateSet() : nullptr;
    osg::Uniform* uniform = state ? state->getUniform("selectColor") : nullptr;
    if (uniform) uniform->set(getSelectColor());
}

void ShaderHelper::switchEDLShader(osg::Node* node, bool enable)
{
    if (!node) return;
    PointCloudViewerVisitor visitor([enable](IPointCloud& cloud) {
        if (enable)
            cloud.enableEyeDomeLighting();
        else
            cloud.disableEyeDomeLighting();
    });
    node->accept(visitor);
}

} // namespace VelOsgDBBrx
