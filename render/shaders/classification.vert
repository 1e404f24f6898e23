#version 430 compatibility
// The colour of the point's class.
#include "point.glsl"
#include "color_table.glsl"

vec4 modeColor(dvec4 globalPosition)
{
    return tableColor(classCode());
}
