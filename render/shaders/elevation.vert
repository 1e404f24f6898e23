#version 430 compatibility
// Height through a gradient, which may repeat.
#define LINE_POINT_SIZE 10.0
#include "point.glsl"
#include "gradient.glsl"

uniform bool isCircle;

vec4 modeColor(dvec4 globalPosition)
{
    float height = float(globalPosition.z);
    return isCircle ? getColorByCircle(height) : getColor(height);
}
