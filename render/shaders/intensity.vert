#version 430 compatibility
// Intensity through a gradient.
#define SHOWS_PLAIN_COLOR
#include "point.glsl"
#include "gradient.glsl"

vec4 modeColor(dvec4 globalPosition)
{
    return getColor(storedIntensity());
}
