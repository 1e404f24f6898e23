#include <VelOsgDBBrx/ShaderHelper.h>

#include <gtest/gtest.h>
#include <osg/BufferIndexBinding>
#include <osg/Group>
#include <osg/Program>
#include <osg/StateSet>
#include <osg/Uniform>

#include <functional>
#include <map>
#include <string>
#include <vector>

#ifndef GL_VERTEX_PROGRAM_POINT_SIZE
#define GL_VERTEX_PROGRAM_POINT_SIZE 0x8642
#endif

using VelOsgDBBrx::ColorScale;
using VelOsgDBBrx::ColorWithRangeInfo;
using VelOsgDBBrx::ShaderHelper;

namespace {

using Table = std::vector<osg::Vec4f>;

/// Types of uniforms, as GLSL writes them, by name; "[256]" behind those that are arrays of so many.
using Uniforms = std::map<std::string, std::string>;

constexpr unsigned kNeitherOverridingNorProtected = 0;

Uniforms uniformsOf(const osg::StateSet& state)
{
    Uniforms uniforms;
    for (const auto& [name, entry] : state.getUniformList()) {
        const unsigned elements = entry.first->getNumElements();
        uniforms[name] = osg::Uniform::getTypename(entry.first->getType());
        if (elements > 1) uniforms[name] += "[" + std::to_string(elements) + "]";
        EXPECT_EQ(entry.second, kNeitherOverridingNorProtected) << name;
    }
    return uniforms;
}

struct Mode
{
    const char* vertexShader;
    std::function<void(osg::Node*)> apply;
    Uniforms uniforms;
    int buffer = -1; ///< the binding of its storage buffer
};

std::vector<Mode> allModes()
{
    ColorWithRangeInfo gradient;
    gradient.entries.resize(3);
    ColorScale scale;
    scale.addColorScaleElement(0, osg::Vec4f());
    scale.addColorScaleElement(1, osg::Vec4f());
    const auto byTable = [](void (*mode)(osg::Node*, Table&)) {
        return [mode, colors = Table(3)](osg::Node* node) mutable { mode(node, colors); };
    };
    const Uniforms table = {{"selectColor", "vec4"}, {"colorArr", "vec4[256]"}};
    constexpr int kGradient = 9;
    constexpr int kMarkColors = 10;
    return {{"changed.vert",
             [](osg::Node* node) { ShaderHelper::changedColorShader(node, Table(3)); },
             {{"selectColor", "vec4"}},
             kMarkColors},
            {"origin.vert", ShaderHelper::originColorShader, {{"selectColor", "vec4"}}},
            {"single.vert",
             [](osg::Node* node) { ShaderHelper::singleColorShader(node, osg::Vec4f()); },
             {{"selectColor", "vec4"}, {"fileColor", "vec4"}}},
            {"intensity.vert",
             [=](osg::Node* node) mutable { ShaderHelper::intensityShader(node, gradient); },
             {{"selectColor", "vec4"}, {"elevationEntry", "vec2"}},
             kGradient},
            {"elevation.vert",
             [=](osg::Node* node) mutable { ShaderHelper::elevationColorShader(node, gradient, true); },
             {{"selectColor", "vec4"},
              {"elevationEntry", "vec2"},
              {"intensityPair", "vec2"},
              {"isCircle", "bool"},
              {"blendIntensity", "bool"}},
             kGradient},
            {"elevation_lit.vert",
             [=](osg::Node* node) mutable { ShaderHelper::elevationColorShaderWithLight(node, gradient); },
             {{"elevationEntry", "vec2"}, {"isCircle", "bool"}},
             kGradient},
            {"gps_time.vert",
             [=](osg::Node* node) mutable { ShaderHelper::gpsTimeColorShader(node, scale); },
             {{"selectColor", "vec4"}, {"colorArr", "vec4[256]"}, {"stepArr", "float[256]"}}},
            {"classification.vert", byTable(ShaderHelper::classificationColorShader), table},
            {"classification_lit.vert",
             byTable(ShaderHelper::classificationColorShaderWithLight),
             {{"colorArr", "vec4[256]"}}},
            {"point_source.vert", byTable(ShaderHelper::pointSourceIDColorShader), table},
            {"return_number.vert", byTable(ShaderHelper::returnNumberColorShader), table},
            {"number_of_returns.vert", byTable(ShaderHelper::numbersReturnColorShader), table},
            {"flight_line.vert", byTable(ShaderHelper::flightLineColorShader), table}};
}

} // namespace

/// What hosts find by name; the pictures of the modes show that the values are right.
TEST(ModeState, IsWhatThePointProgramsReadWithoutForcingItOnNodesBelow)
{
    for (const Mode& mode : allModes()) {
        SCOPED_TRACE(mode.vertexShader);
        const osg::ref_ptr<osg::Group> node = new osg::Group;
        mode.apply(nullptr); // is ignored
        mode.apply(node);
        const osg::StateSet& state = *node->getStateSet();
        EXPECT_EQ(uniformsOf(state), mode.uniforms);
        for (int binding = 0; binding < 16; ++binding) {
            const auto* buffer = state.getAttributePair(osg::StateAttribute::SHADERSTORAGEBUFFERBINDING,
                                                        static_cast<unsigned>(binding));
            ASSERT_EQ(buffer != nullptr, binding == mode.buffer) << binding;
            EXPECT_TRUE(!buffer || buffer->second == kNeitherOverridingNorProtected);
        }
        const auto* program = state.getAttributePair(osg::StateAttribute::PROGRAM);
        ASSERT_TRUE(program);
        EXPECT_EQ(program->second, kNeitherOverridingNorProtected);
        EXPECT_EQ(program->first->getName(), mode.vertexShader);
        EXPECT_EQ(state.getMode(GL_VERTEX_PROGRAM_POINT_SIZE), osg::StateAttribute::ON);
    }
}
