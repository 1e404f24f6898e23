#version 430 compatibility
// The closed surface with its shade, contour lines and depth.
#include "surface_place.glsl"

uniform sampler2D relief;   // see surface_relief.frag
uniform float contourPhase; // the height of the eye in the world, less whole fives of intervals

out vec4 fragColor;
out uvec4 pIntAttribute;
out vec4 pFloatAttribute;
out vec4 pFPositionAttribute;
out ivec4 pIPositionAttribute;

const vec3 kContourColor = vec3(0.30, 0.17, 0.08);
const float kSparsest = 0.005; // lines a pixel: where it is flat a line would spread over all of it

// How much of a pixel a line of a width has. `height` is in intervals, `density` lines a pixel.
float lineShare(float height, float density, float width)
{
    float away = abs(fract(height + 0.5) - 0.5) / density;
    float room = smoothstep(3.0, 7.0, 1.0 / density); // pixels between lines: too many are none
    return room * (1.0 - smoothstep(width / 2.0 - 0.5, width / 2.0 + 0.5, away));
}

float contourShare(vec3 position, float density)
{
    if (contourInterval <= 0.0) return 0.0;
    float height = (contourPhase + heightAbove(position)) / contourInterval;
    return max(0.55 * lineShare(height, density, 1.2), 0.9 * lineShare(height / 5.0, density / 5.0, 2.2));
}

void main()
{
    vec2 place = (gl_FragCoord.xy - viewportArea.xy) / viewportArea.zw;
    vec4 here = texture(surface, place);
    if (here.y < kCovered) discard;
    vec3 position = eyePosition(place, here.x);
    vec4 shade = texture(relief, place);
    float density = max(densityOfByte(shade.a), kSparsest);
    fragColor = vec4(mix(shade.rgb, kContourColor, contourShare(position, density)), 1.0);

    // Behind the points that lie on it.
    position.z -= pixelLength(-position.z, 0.0);
    vec2 clip = (gl_ProjectionMatrix * vec4(position, 1.0)).zw;
    gl_FragDepth = clamp(0.5 * clip.x / clip.y + 0.5, 0.0, 1.0);

    pIntAttribute = uvec4(0u);
    pFloatAttribute = vec4(0.0);
    pFPositionAttribute = vec4(0.0);
    pIPositionAttribute = ivec4(0);
}
