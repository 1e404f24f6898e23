#version 430 compatibility
// The colour of the edit that touched the point last, or of how it differs from what it was: of its mark. Marks beyond
// the table have its last colour. Points that edits have hidden are drawn too, darker.
#define SHOWS_HIDDEN_MARKED
#include "point.glsl"
layout(std430, binding = 10) buffer markColors { vec4 markColor[]; };

vec4 modeColor(dvec4 globalPosition)
{
    return markColor[min(pointMark(), markColor.length() - 1)];
}
