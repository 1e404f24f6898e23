#version 430 compatibility
// The colour of the return number.
#include "point.glsl"
#include "color_table.glsl"

vec4 modeColor(dvec4 globalPosition)
{
    return tableColor(mulAttribute & 0x0000000f);
}
