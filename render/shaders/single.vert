#version 430 compatibility
// One colour for the whole cloud.
#include "point.glsl"

uniform vec4 fileColor;

vec4 modeColor(dvec4 globalPosition)
{
    return fileColor;
}
