#include "render/PointPrograms.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <osg/Program>
#include <osg/Shader>

#include <cctype>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<osg::ref_ptr<osg::Program>> allPrograms()
{
    std::vector<osg::ref_ptr<osg::Program>> programs;
    for (int i = 0; i <= static_cast<int>(PointProgram::EyeDome); ++i)
        programs.push_back(pointProgram(static_cast<PointProgram>(i)));
    return programs;
}

/// The names and numbers of a shader in their order, without its comments.
std::vector<std::string> wordsOf(const std::string& source)
{
    std::vector<std::string> words;
    std::istringstream lines(source);
    for (std::string line; std::getline(lines, line);) {
        std::string code = line.substr(0, line.find("//"));
        for (char& c : code)
            if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') c = ' ';
        std::istringstream split(code);
        words.insert(words.end(), std::istream_iterator<std::string>(split), {});
    }
    return words;
}

/// The locations that fixed-function inputs share their memory with.
const std::map<std::string, int> kAliases = {
    {"gl_Vertex", 0}, {"gl_Normal", 2}, {"gl_Color", 3}, {"gl_SecondaryColor", 4}, {"gl_FogCoord", 5}};

int aliasOf(const std::string& builtin)
{
    const auto found = kAliases.find(builtin);
    return found != kAliases.end() ? found->second : 8 + (builtin.back() - '0');
}

/// Generic locations that a vertex shader declares and the fixed-function inputs that it uses.
struct VertexInputs
{
    explicit VertexInputs(const std::string& source)
    {
        const std::vector<std::string> words = wordsOf(source);
        for (size_t i = 0; i < words.size(); ++i) {
            if (words[i] == "location" && i + 2 < words.size() && words[i + 2] == "in")
                locations.insert(std::stoi(words[i + 1]));
            if (kAliases.count(words[i]) || words[i].rfind("gl_MultiTexCoord", 0) == 0)
                builtins.insert(words[i]);
            if (words[i] == "ftransform") builtins.insert("gl_Vertex");
        }
    }

    std::set<int> locations;
    std::set<std::string> builtins;
};

/// Writes the shaders of a program into a folder, and gives their paths.
std::vector<std::string> writeShaders(const osg::Program& program, const TempFolder& folder)
{
    std::vector<std::string> paths;
    for (unsigned i = 0; i < program.getNumShaders(); ++i) {
        const osg::Shader& shader = *program.getShader(i);
        std::ofstream(folder.file(shader.getName())) << shader.getShaderSource();
        paths.push_back(folder.file(shader.getName()));
    }
    return paths;
}

} // namespace

TEST(ShaderPrograms, AreValidGlslAndTheirStagesFitTogether)
{
    for (const osg::ref_ptr<osg::Program>& program : allPrograms()) {
        const TempFolder folder;
        const std::vector<std::string> paths = writeShaders(*program, folder);
        for (const std::vector<std::string>& defines : {std::vector<std::string>{},
                                                        {"-DNO_EXTRAS"},
                                                        {"-DIN_CLOUD"},
                                                        {"-DNO_EXTRAS", "-DIN_CLOUD"},
                                                        {"-DIN_CLOUD", "-DLEAVES_OUT_SURFACE"},
                                                        {"-DCOLOR_ALONE"},
                                                        {"-DNO_EXTRAS", "-DIN_CLOUD", "-DCOLOR_ALONE"},
                                                        {"-DIN_CLOUD", "-DSIZED_BY_SPACING"}}) {
            std::vector<std::string> words = {VELBRX_GLSLANG_VALIDATOR, "-l"};
            words.insert(words.end(), defines.begin(), defines.end());
            words.insert(words.end(), paths.begin(), paths.end());
            const ProgramResult result = runProgram(words);
            EXPECT_EQ(result.exitStatus, 0) << program->getName() << testing::PrintToString(defines) << "\n"
                                            << result.out;
        }
    }
}

/// Lit programs write one output, and bind the others like the rest.
TEST(ShaderPrograms, BindFiveFragmentOutputs)
{
    for (const osg::ref_ptr<osg::Program>& program : allPrograms()) {
        const std::string second = program->getName() == "edl.vert" ? "pAttribute" : "pIntAttribute";
        const osg::Program::FragDataBindingList expected = {{"fragColor", 0},
                                                            {second, 1},
                                                            {"pFloatAttribute", 2},
                                                            {"pFPositionAttribute", 3},
                                                            {"pIPositionAttribute", 4}};
        EXPECT_EQ(program->getFragDataBindingList(), expected) << program->getName();
    }
}

/// Drivers that follow the letter let generic attributes and fixed-function inputs share their memory; a
/// program that reads both ends of an alias works on some machines only.
TEST(ShaderPrograms, ReadNoFixedFunctionInputThatAliasesAnAttribute)
{
    size_t locations = 0;
    for (const osg::ref_ptr<osg::Program>& program : allPrograms()) {
        const osg::Shader& vertexShader = *program->getShader(0);
        ASSERT_EQ(vertexShader.getType(), osg::Shader::VERTEX);
        const VertexInputs inputs(vertexShader.getShaderSource());
        EXPECT_EQ(inputs.builtins.count("gl_Vertex"), 1u) << program->getName();
        locations += inputs.locations.size();
        for (const std::string& builtin : inputs.builtins)
            EXPECT_EQ(inputs.locations.count(aliasOf(builtin)), 0u) << program->getName() << " " << builtin;
    }
    EXPECT_GT(locations, 10u);
}
