#version 430 compatibility
// The points' stored colour.
#define TABLE_OF_STORED_COLOR
#include "point.glsl"

vec4 modeColor(dvec4 globalPosition)
{
    return vec4(storedColor(), 1.0);
}
