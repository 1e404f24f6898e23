#include "render/PointPrograms.h"

#include <gtest/gtest.h>
#include <osg/Program>
#include <osg/Shader>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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

class ShaderFiles
{
public:
    explicit ShaderFiles(const osg::Program& program)
    {
        std::string name = (std::filesystem::temp_directory_path() / "velbrx-shaders-XXXXXX").string();
        _folder = mkdtemp(name.data());
        for (unsigned i = 0; i < program.getNumShaders(); ++i) {
            const osg::Shader& shader = *program.getShader(i);
            const std::filesystem::path path = _folder / shader.getName();
            std::ofstream(path) << shader.getShaderSource();
            list += " " + path.string();
        }
    }
    ~ShaderFiles() { std::filesystem::remove_all(_folder); }

    std::string list; ///< paths for a command line

private:
    std::filesystem::path _folder;
};

} // namespace

TEST(ShaderPrograms, AreValidGlslAndTheirStagesFitTogether)
{
    for (const osg::ref_ptr<osg::Program>& program : allPrograms()) {
        const ShaderFiles files(*program);
        for (const char* options :
             {" -l", " -l -DNO_EXTRAS", " -l -DNO_CLIP_PLANES", " -l -DNO_EXTRAS -DNO_CLIP_PLANES"}) {
            std::string output;
            EXPECT_EQ(run(VELBRX_GLSLANG_VALIDATOR + std::string(options) + files.list, output), 0)
                << program->getName() << options << "\n"
                << output;
        }
    }
}

/// Drivers that follow the letter let generic attributes and fixed-function inputs share their memory; a
/// program that reads both ends of an alias works on some machines only.
TEST(ShaderPrograms, ReadNoFixedFunctionInputThatAliasesAnAttribute)
{
    for (const osg::ref_ptr<osg::Program>& program : allPrograms()) {
        const osg::Shader& vertexShader = *program->getShader(0);
        ASSERT_EQ(vertexShader.getType(), osg::Shader::VERTEX);
        const VertexInputs inputs(vertexShader.getShaderSource());
        EXPECT_EQ(inputs.builtins.count("gl_Vertex"), 1u) << program->getName();
        for (const std::string& builtin : inputs.builtins)
            EXPECT_EQ(inputs.locations.count(aliasOf(builtin)), 0u) << program->getName() << " " << builtin;
    }
}

TEST(ShaderPrograms, ScanFindsAnAlias)
{
    const VertexInputs inputs("layout(location = 8) in vec4 normal; // gl_Color\n"
                              "void main() { gl_Position = ftransform() + gl_MultiTexCoord0; }");
    EXPECT_EQ(inputs.locations, std::set<int>{8});
    EXPECT_EQ(VertexInputs("layout(location = 0) out vec4 color;").locations, std::set<int>{});
    EXPECT_EQ(inputs.builtins, (std::set<std::string>{"gl_Vertex", "gl_MultiTexCoord0"}));
    EXPECT_EQ(aliasOf("gl_MultiTexCoord0"), 8);
}
