#version 430 compatibility
// A sample of the surface, of one point.
#include "surface_sample.glsl"

in float cansee;
flat in float nearness;
flat in vec2 place;

out vec4 fragColor;

void main()
{
    if (cansee < 1.0) discard;
    fragColor = texelOf(Sample(nearness, place, 1.0, 1.0, 0.0));
}
