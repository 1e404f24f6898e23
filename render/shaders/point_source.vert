#version 430 compatibility
// The colour of the point source id; ids above 255 share the last one.
#include "point.glsl"
#include "color_table.glsl"

vec4 modeColor(dvec4 globalPosition)
{
    return tableColor(pointSourceId());
}
