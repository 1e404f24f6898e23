#version 430 compatibility
// GPS time through steps of time and colour. Both are floats, so both are rounded alike.
#define SELECTS_BEFORE_BLENDING
#include "point.glsl"

uniform vec4 colorArr[256];
uniform float stepArr[256];

vec4 getColor(float value)
{
    for (int j = 0; j < 255; ++j) {
        float down = stepArr[j];
        float up = stepArr[j + 1];
        float d = up - down;
        if (down <= value && value <= up && d > 1E-12)
            return vec4((colorArr[j] + (colorArr[j + 1] - colorArr[j]) * (value - down) / d).rgb, 1.0);
    }
    return vec4(0.0, 0.0, 0.0, 1.0);
}

vec4 modeColor(dvec4 globalPosition)
{
    return getColor(gpstime);
}
