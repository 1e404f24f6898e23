// Where a pixel of the closed surface lies.
#include "surface_sample.glsl"

uniform sampler2D surface; // see surface_push.frag
uniform mat4 worldFromEye;
uniform float contourInterval; // world units; 0: no contour lines

const float kCovered = 0.58; // from this share on a pixel is shown: half would do, but for the roughness of coarse levels

vec3 eyePosition(vec2 place, float nearness)
{
    vec2 window = 2.0 * place - 1.0;
    vec2 scale = vec2(gl_ProjectionMatrix[0][0], gl_ProjectionMatrix[1][1]);
    float distance = distanceOf(nearness);
    if (isParallel()) return vec3((window - gl_ProjectionMatrix[3].xy) / scale, -distance);
    return vec3((window + gl_ProjectionMatrix[2].xy) * distance / scale, -distance);
}

float heightAbove(vec3 fromEye)
{
    return dot(vec3(worldFromEye[0][2], worldFromEye[1][2], worldFromEye[2][2]), fromEye);
}

// What the shade of a pixel keeps of how dense contour lines are, so that a byte holds all that is drawn: of 0.005 to
// 2 lines a pixel of the viewport.
const float kDensest = 2.0;

float byteOfDensity(float linesPerPixel)
{
    return sqrt(min(linesPerPixel / kDensest, 1.0));
}

float densityOfByte(float kept)
{
    return kDensest * kept * kept;
}
