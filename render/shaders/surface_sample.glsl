// What the pictures that a surface is made of have in common.
#include "surface_eye.glsl"

uniform vec4 viewportArea; // left, bottom, width, height: pixels
uniform int level;         // of what is drawn: its pixels are 2^level pixels of level 0

const float kPixelsPerSample = 2.0; // of level 0
const float kNothing = -1e30; // the nearness of what is not there
const float kFewPoints = 3.0;       // they say nothing yet of how dense points are

// The points in a pixel that belong to one piece of surface.
struct Sample
{
    float nearness; // mean
    vec2 place;     // mean, in the picture: (0, 0) to (1, 1)
    float count;    // up to kFewPoints; 0: there are none
    float share;    // of the pixel that has points about it
    float spacing;  // level whose pixels are about as far apart as the points
};

const float kShareSteps = 255.0;
const float kSpacingSteps = 64.0;

vec4 texelOf(Sample s)
{
    float rest = min(s.count, kFewPoints) +
                 4.0 * (round(s.share * kShareSteps) + 256.0 * round(s.spacing * kSpacingSteps));
    return vec4(s.nearness, s.place, rest);
}

float countOf(vec4 texel)
{
    return float(int(texel.w) & 3);
}

float shareOf(vec4 texel)
{
    return float(int(texel.w) >> 2 & 255) / kShareSteps;
}

float spacingOf(vec4 texel)
{
    return float(int(texel.w) >> 10) / kSpacingSteps;
}

// Length in the world, across the view axis, of a pixel of a level.
float pixelLength(float distance, float ofLevel)
{
    float size = 2.0 * kPixelsPerSample * exp2(ofLevel) / (gl_ProjectionMatrix[1][1] * viewportArea.w);
    return isParallel() ? size : size * distance;
}

// How far behind the surface a point may be and still be part of it: surfaces are seen under an angle of a few degrees
// at least.
float depthTolerance(float distance, float ofLevel)
{
    return 8.0 * pixelLength(distance, ofLevel);
}
