#version 430 compatibility
// The colour of the flight line. The cells of a cloud have it in the point source id: surveys often count their lines
// from a thousand up, and modulo 256 neighbouring lines still get colours of their own. Other geometry has an
// attribute for it.
#pragma import_defines(IN_CLOUD)
#ifndef IN_CLOUD
#define HAS_FLIGHT_ATTRIBUTE
#endif
#include "point.glsl"
#include "color_table.glsl"

vec4 modeColor(dvec4 globalPosition)
{
#ifdef HAS_FLIGHT_ATTRIBUTE
    return tableColor(int(flight));
#else
    return tableColor(pointSourceId() & 0xff);
#endif
}
