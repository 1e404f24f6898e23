#pragma once

#include <string>

/// Text of the shader with that file name in `render/shaders`, complete with what it includes; null when
/// there is none.
const char* shaderText(const std::string& name);
