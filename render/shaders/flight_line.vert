#version 430 compatibility
// The colour of the flight line. Surveys keep the line's number in the point source id and often count from a
// thousand up; modulo 256, neighbouring lines still get colours of their own.
#include "point.glsl"
#include "color_table.glsl"

vec4 modeColor(dvec4 globalPosition)
{
    float flight = float(pointSourceId() & 0xff);
    return tableColor(int(flight));
}
