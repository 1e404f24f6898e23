#version 430 compatibility
// A point of the surface: how near it is, and its place in the picture. Points that are not on it are drawn nowhere.
#define LINE_POINT_SIZE 1.0
#include "point.glsl"
#include "surface_eye.glsl"

flat out float nearness;
flat out vec2 place;

vec4 modeColor(dvec4 globalPosition)
{
    nearness = nearnessOf((gl_ModelViewMatrix * gl_Vertex).z);
    place = 0.5 * gl_Position.xy / gl_Position.w + 0.5;
    bool hidden = (categoryWithColorR & kHiddenBits) != 0;
#ifdef IN_CLOUD
    if (hidden || !isSurfaceClass(classCode())) gl_Position = kNowhere;
#else
    gl_Position = kNowhere;
#endif
    return vec4(1.0);
}
