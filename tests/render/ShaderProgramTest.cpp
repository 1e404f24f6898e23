#include "render/PointPrograms.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <osg/Program>
#include <osg/Shader>

#include <cctype>
#include <cstdio>
#include <fstream>
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

/// Runs a shell command; its exit status, with all its output in `output`.
int run(const std::string& command, std::string& output)
{
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return -1;
    char buffer[4096];
    while (const size_t count = fread(buffer, 1, sizeof buffer, pipe))
        output.append(buffer, count);
    return pclose(pipe);
}

/// The names and numbers of a shader in their order, without its comments.
std::vector<std::string> wordsOf(const std::string& source)
{
    std::vector<std::string> words;
    std::istringstream lines(source);
    for (std::string line; std::getline(lines, line);) {
        std::string word;
        for (const char c : line.substr(0, line.find("//")) + '\n') {
            if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') {
                word += c;
            } else if (!word.empty()) {
                words.push_back(word);
                word.clear();
            }
        }
    }
    return words;
}

bool isFixedFunctionInput(const std::string& word)
{
    static const std::set<std::string> single = {"gl_Vertex", "gl_Normal", "gl_Color", "gl_SecondaryColor",
                                                 "gl_FogCoord"};
    return single.count(word) || word.rfind("gl_MultiTexCoord", 0) == 0;
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
            if (isFixedFunctionInput(words[i])) builtins.insert(words[i]);
            if (words[i] == "ftransform") builtins.insert("gl_Vertex");
        }
    }

    std::set<int> locations;
    std::set<std::string> builtins;
};

int aliasOf(const std::string& builtin)
{
    static const std::map<std::string, int> fixed = {
        {"gl_Vertex", 0}, {"gl_Normal", 2}, {"gl_Color", 3}, {"gl_SecondaryColor", 4}, {"gl_FogCoord", 5}};
    const auto found = fixed.find(builtin);
    return found != fixed.end() ? found->second : 8 + (builtin.back() - '0');
}

/// Writes the shaders of a program into a folder; their paths for a command line.
std::string writeShaders(const osg::Program& program, const TempFolder& folder)
{
    std::string list;
    for (unsigned i = 0; i < program.getNumShaders(); ++i) {
        const osg::Shader& shader = *program.getShader(i);
        std::ofstream(folder.file(shader.getName())) << shader.getShaderSource();
        list += " " + folder.file(shader.getName());
    }
    return list;
}

} // namespace

TEST(ShaderPrograms, AreValidGlslAndTheirStagesFitTogether)
{
    for (const osg::ref_ptr<osg::Program>& program : allPrograms()) {
        const TempFolder folder;
        const std::string files = writeShaders(*program, folder);
        for (const char* options :
             {" -l", " -l -DNO_EXTRAS", " -l -DIN_CLOUD", " -l -DNO_EXTRAS -DIN_CLOUD"}) {
            std::string output;
            EXPECT_EQ(run(VELBRX_GLSLANG_VALIDATOR + std::string(options) + files, output), 0)
                << program->getName() << options << "\n"
                << output;
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
