#version 430 compatibility
// The shade of each pixel of the closed surface, and how dense contour lines are there.
// The application defines HAS_PALETTE where colours tell heights.
#pragma import_defines(HAS_PALETTE)
#include "surface_place.glsl"
#ifdef HAS_PALETTE
#include "gradient.glsl"
#endif

uniform float eyeHeight; // world
uniform vec3 towardsSun; // world

out vec4 fragColor;

const vec3 kPlainColor = vec3(0.80, 0.77, 0.70);
const vec3 kSteepColor = vec3(0.85, 0.32, 0.16);
const float kAmbient = 0.3;
const float kRelief = 2.0; // heights are shaded as if they were so much larger

// Eye coordinates, and whether the surface is shown there.
vec4 positionAt(ivec2 pixel)
{
    vec2 place = (vec2(pixel) + 0.5) / vec2(textureSize(surface, 0));
    vec4 texel = texelFetch(surface, pixel, 0);
    return vec4(eyePosition(place, texel.x), texel.y < kCovered ? 0.0 : 1.0);
}

// From one side of a pixel to the other; from the pixel to one side where the other lies beyond an edge.
vec3 across(vec4 before, vec3 here, vec4 after)
{
    if (before.w < after.w) return 2.0 * (after.xyz - here);
    if (after.w < before.w) return 2.0 * (here - before.xyz);
    float back = abs(here.z - before.z);
    float ahead = abs(after.z - here.z);
    float slight = pixelLength(-here.z, 0.0);
    if (back > 4.0 * (ahead + slight)) return 2.0 * (after.xyz - here);
    if (ahead > 4.0 * (back + slight)) return 2.0 * (here - before.xyz);
    return after.xyz - before.xyz;
}

void main()
{
    // Beyond the picture there is nothing to compare with.
    ivec2 last = textureSize(surface, 0) - 1;
    ivec2 pixel = clamp(ivec2(gl_FragCoord.xy), min(ivec2(1), last), max(last - 1, ivec2(0)));
    vec3 here = positionAt(pixel).xyz;
    vec3 right = across(positionAt(pixel - ivec2(1, 0)), here, positionAt(pixel + ivec2(1, 0)));
    vec3 up = across(positionAt(pixel - ivec2(0, 1)), here, positionAt(pixel + ivec2(0, 1)));
    vec3 normal = normalize(mat3(worldFromEye) * cross(right, up));
    if (normal.z < 0.0) normal = -normal;

    float slope = length(normal.xy) / max(normal.z, 1e-3);
#ifdef HAS_PALETTE
    vec3 color = getColor(eyeHeight + heightAbove(here)).rgb;
#else
    vec3 color = kPlainColor;
#endif
    color = mix(color, kSteepColor, 0.75 * smoothstep(0.5, 1.5, slope));
    vec3 raised = normalize(vec3(kRelief * normal.xy, normal.z));
    color *= kAmbient + (1.0 - kAmbient) * max(dot(raised, towardsSun), 0.0) / max(towardsSun.z, 0.3);
    vec2 change = vec2(heightAbove(right), heightAbove(up)) / (2.0 * kPixelsPerSample);
    float density = contourInterval > 0.0 ? length(change) / contourInterval : 0.0;
    fragColor = vec4(min(color, vec3(1.0)), byteOfDensity(density));
}
