#version 430 compatibility
// The colour of the number of returns of the point's pulse.
#include "point.glsl"
#include "color_table.glsl"

vec4 modeColor(dvec4 globalPosition)
{
    int retnumber = (mulAttribute & 0x000000f0) >> 4;
    return tableColor(retnumber);
}
