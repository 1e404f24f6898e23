#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/Array>
#include <osg/BufferIndexBinding>
#include <osg/Group>
#include <osg/Program>
#include <osg/StateSet>
#include <osg/Uniform>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#ifndef GL_VERTEX_PROGRAM_POINT_SIZE
#define GL_VERTEX_PROGRAM_POINT_SIZE 0x8642
#endif

using VelOsgDBBrx::ColorEntry;
using VelOsgDBBrx::ColorScale;
using VelOsgDBBrx::ColorWithRangeInfo;
using VelOsgDBBrx::ShaderHelper;

namespace {

using Table = std::vector<osg::Vec4f>;

/// What a program gets: its type, and its elements one after the other.
struct UniformValue
{
    osg::Uniform::Type type;
    std::vector<float> elements;

    bool operator==(const UniformValue& other) const
    {
        return type == other.type && elements == other.elements;
    }
};

void PrintTo(const UniformValue& value, std::ostream* out)
{
    *out << osg::Uniform::getTypename(value.type) << " " << testing::PrintToString(value.elements);
}

using Uniforms = std::map<std::string, UniformValue>;

UniformValue valueOf(const osg::Uniform& uniform)
{
    UniformValue value{uniform.getType(), {}};
    if (const osg::FloatArray* floats = uniform.getFloatArray())
        value.elements.assign(floats->begin(), floats->end());
    if (const osg::IntArray* ints = uniform.getIntArray()) value.elements.assign(ints->begin(), ints->end());
    return value;
}

constexpr unsigned kNeitherOverridingNorProtected = 0;

/// The uniforms of a state set.
Uniforms uniformsOf(const osg::StateSet& state)
{
    Uniforms uniforms;
    for (const auto& [name, entry] : state.getUniformList()) {
        uniforms[name] = valueOf(*entry.first);
        EXPECT_EQ(entry.second, kNeitherOverridingNorProtected) << name;
    }
    return uniforms;
}

UniformValue vec4(const osg::Vec4f& v)
{
    return {osg::Uniform::FLOAT_VEC4, {v.r(), v.g(), v.b(), v.a()}};
}

/// 256 colours: those given, cut or filled with opaque black.
UniformValue colorTable(Table colors)
{
    colors.resize(256, osg::Vec4f(0, 0, 0, 1));
    UniformValue value{osg::Uniform::FLOAT_VEC4, {}};
    for (const osg::Vec4f& color : colors)
        for (int channel = 0; channel < 4; ++channel)
            value.elements.push_back(color[channel]);
    return value;
}

Table manyColors(int count)
{
    Table colors;
    for (int i = 0; i < count; ++i)
        colors.emplace_back(static_cast<float>(i) / 512, 1 - static_cast<float>(i) / 512, 0.5f,
                            static_cast<float>(i % 2));
    return colors;
}

ColorWithRangeInfo gradient()
{
    ColorWithRangeInfo info;
    info.entries.resize(3);
    for (size_t i = 0; i < 3; ++i) {
        info.entries[i].color.set(0.25f * static_cast<float>(i), 0.5f, 0.75f, 0.125f);
        info.entries[i].position = 0.5f * static_cast<float>(i);
        info.entries[i].padding[1] = 7; // copied as it is
    }
    info.range.set(12.5f, 100);
    info.isCircle = true;
    info.intensityMin = 1000;
    info.intensityMax = 3000;
    return info;
}

/// The gradient's stops are bound, byte for byte, where the shaders read them; without one nothing is.
void expectGradient(const osg::StateSet& state, const std::vector<ColorEntry>& entries)
{
    constexpr unsigned kBinding = 9;
    for (unsigned binding = 0; binding < 16; ++binding) {
        const auto* pair = state.getAttributePair(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING, binding);
        ASSERT_EQ(pair != nullptr, binding == kBinding && !entries.empty()) << binding;
        if (!pair) continue;
        EXPECT_EQ(pair->second, kNeitherOverridingNorProtected);
        const auto& buffer = dynamic_cast<const osg::ShaderStorageBufferBinding&>(*pair->first);
        EXPECT_EQ(buffer.getOffset(), 0);
        EXPECT_EQ(buffer.getSize(), static_cast<GLsizeiptr>(32 * entries.size())) << "the whole of it";
        const osg::BufferData& data = *buffer.getBufferData();
        EXPECT_TRUE(dynamic_cast<const osg::ShaderStorageBufferObject*>(data.getBufferObject()));
        ASSERT_EQ(data.getTotalDataSize(), 32 * entries.size());
        EXPECT_EQ(std::memcmp(data.getDataPointer(), entries.data(), data.getTotalDataSize()), 0);
    }
}

struct Mode
{
    const char* vertexShader;
    std::function<void(osg::Node*)> apply;
    Uniforms uniforms;
    bool hasGradient = false;
};

std::vector<Mode> allModes()
{
    const auto selectColor = std::pair("selectColor", vec4(ShaderHelper::getSelectColor()));
    const UniformValue isOn{osg::Uniform::BOOL, {1}};
    const UniformValue range{osg::Uniform::FLOAT_VEC2, {12.5f, 100}};
    ColorScale scale;
    const Table colors = manyColors(3);
    UniformValue steps{osg::Uniform::FLOAT, std::vector<float>(256)};
    for (size_t i = 0; i < colors.size(); ++i) {
        steps.elements[i] = static_cast<float>(10.5 * static_cast<double>(i));
        scale.addColorScaleElement(steps.elements[i], colors[i]);
    }
    const osg::Vec4f own(0.1f, 0.2f, 0.3f, 0.4f);
    std::vector<Mode> modes = {
        {"origin.vert", ShaderHelper::originColorShader, {selectColor}},
        {"single.vert",
         [own](osg::Node* node) { ShaderHelper::singleColorShader(node, own); },
         {selectColor, {"fileColor", vec4(own)}}},
        {"intensity.vert",
         [info = gradient()](osg::Node* node) mutable { ShaderHelper::intensityShader(node, info); },
         {selectColor, {"elevationEntry", range}},
         true},
        {"elevation.vert",
         [info = gradient()](osg::Node* node) mutable {
             ShaderHelper::elevationColorShader(node, info, true);
         },
         {selectColor,
          {"elevationEntry", range},
          {"intensityPair", {osg::Uniform::FLOAT_VEC2, {1000 / 65535.0f, 2000 / 65535.0f}}},
          {"isCircle", isOn},
          {"blendIntensity", isOn}},
         true},
        {"elevation_lit.vert",
         [info = gradient()](osg::Node* node) mutable {
             ShaderHelper::elevationColorShaderWithLight(node, info);
         },
         {{"elevationEntry", range}, {"isCircle", isOn}},
         true},
        {"gps_time.vert",
         [scale](osg::Node* node) mutable { ShaderHelper::gpsTimeColorShader(node, scale); },
         {selectColor, {"colorArr", colorTable(colors)}, {"stepArr", steps}}},
    };
    const std::pair<const char*, void (*)(osg::Node*, Table&)> tables[] = {
        {"classification.vert", ShaderHelper::classificationColorShader},
        {"classification_lit.vert", ShaderHelper::classificationColorShaderWithLight},
        {"point_source.vert", ShaderHelper::pointSourceIDColorShader},
        {"return_number.vert", ShaderHelper::returnNumberColorShader},
        {"number_of_returns.vert", ShaderHelper::numbersReturnColorShader},
        {"flight_line.vert", ShaderHelper::flightLineColorShader}};
    for (const auto& [shader, apply] : tables)
        for (const int count : {3, 300}) {
            Uniforms uniforms = {{"colorArr", colorTable(manyColors(count))}};
            if (std::strcmp(shader, "classification_lit.vert") != 0) uniforms.insert(selectColor);
            modes.push_back(
                {shader,
                 [mode = apply, table = manyColors(count)](osg::Node* node) mutable { mode(node, table); },
                 uniforms});
        }
    return modes;
}

} // namespace

TEST(ModeState, IsWhatThePointProgramsReadWithoutForcingItOnNodesBelow)
{
    const osg::Vec4f before = ShaderHelper::getSelectColor();
    ShaderHelper::setSelectColor(osg::Vec4f(0.5f, 0.25f, 0.125f, 1));
    for (const Mode& mode : allModes()) {
        SCOPED_TRACE(mode.vertexShader);
        const osg::ref_ptr<osg::Group> node = new osg::Group;
        mode.apply(nullptr); // is ignored
        mode.apply(node);
        const osg::StateSet& state = *node->getStateSet();
        EXPECT_EQ(uniformsOf(state), mode.uniforms);
        expectGradient(state, mode.hasGradient ? gradient().entries : std::vector<ColorEntry>());

        const auto* program = state.getAttributePair(osg::StateAttribute::PROGRAM);
        ASSERT_TRUE(program);
        EXPECT_EQ(program->second, kNeitherOverridingNorProtected);
        EXPECT_EQ(program->first->getName(), mode.vertexShader);
        EXPECT_EQ(state.getMode(GL_VERTEX_PROGRAM_POINT_SIZE), osg::StateAttribute::ON);
    }
    ShaderHelper::setSelectColor(before);
}
