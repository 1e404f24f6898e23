# Writes a C++ file that holds shaders as text, their #include lines replaced by the files that they name.
#   cmake -DOUTPUT=<cpp> -DFOLDER=<folder of the shaders> "-DSHADERS=<file;file;...>" -P EmbedShaders.cmake
cmake_minimum_required(VERSION 3.24)

function(read_shader name result)
  file(READ "${FOLDER}/${name}" text)
  while(text MATCHES "#include \"([^\"\n]+)\"\n")
    set(line "${CMAKE_MATCH_0}")
    read_shader("${CMAKE_MATCH_1}" included)
    string(REPLACE "${line}" "${included}" text "${text}")
  endwhile()
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

set(entries "")
foreach(shader IN LISTS SHADERS)
  read_shader("${shader}" text)
  string(APPEND entries "    {\"${shader}\", R\"glsl(${text})glsl\"},\n")
endforeach()
file(WRITE "${OUTPUT}" "#include \"render/ShaderText.h\"

namespace {

constexpr struct
{
    const char* name;
    const char* text;
} kShaders[] = {
${entries}};

} // namespace

const char* shaderText(const std::string& name)
{
    for (const auto& shader : kShaders) {
        if (name == shader.name) return shader.text;
    }
    return nullptr;
}
")
