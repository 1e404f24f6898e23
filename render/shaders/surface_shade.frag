#version 430 compatibility
// The closed surface, hill-shaded, with contour lines and its depth.
#include "surface_sample.glsl"
#include "gradient.glsl"

uniform sampler2D surface; // see surface_push.frag
uniform mat4 worldFromEye;
uniform float eyeHeight;       // world
uniform float contourPhase;    // the same, less whole fives of intervals
uniform float contourInterval; // 0: no contour lines
uniform vec3 towardsSun;       // world
uniform bool hasPalette;

out vec4 fragColor;
out uvec4 pIntAttribute;
out vec4 pFloatAttribute;
out vec4 pFPositionAttribute;
out ivec4 pIPositionAttribute;

const vec3 kPlainColor = vec3(0.80, 0.77, 0.70);
const vec3 kSteepColor = vec3(0.85, 0.32, 0.16);
const vec3 kContourColor = vec3(0.30, 0.17, 0.08);
const float kCovered = 0.58; // half would do, but for the roughness of coarse levels
const float kAmbient = 0.3;
const float kRelief = 2.0; // heights are shaded as if they were so much larger

vec3 eyePosition(vec2 place, float nearness)
{
    vec2 window = 2.0 * place - 1.0;
    vec2 scale = vec2(gl_ProjectionMatrix[0][0], gl_ProjectionMatrix[1][1]);
    float distance = distanceOf(nearness);
    if (isParallel()) return vec3((window - gl_ProjectionMatrix[3].xy) / scale, -distance);
    return vec3((window + gl_ProjectionMatrix[2].xy) * distance / scale, -distance);
}

vec3 positionAt(vec2 place)
{
    return eyePosition(place, texture(surface, place).x);
}

// From one side of a pixel to the other; from the pixel to one side where the other lies beyond an edge.
vec3 across(vec3 before, vec3 here, vec3 after)
{
    float back = abs(here.z - before.z);
    float ahead = abs(after.z - here.z);
    float slight = pixelLength(-here.z, 0.0);
    if (back > 4.0 * (ahead + slight)) return 2.0 * (after - here);
    if (ahead > 4.0 * (back + slight)) return 2.0 * (here - before);
    return after - before;
}

float heightAbove(vec3 fromEye)
{
    return dot(vec3(worldFromEye[0][2], worldFromEye[1][2], worldFromEye[2][2]), fromEye);
}

// How much of a pixel a line of a width has; `change` is that of the height over a pixel.
float lineShare(float height, float interval, float change, float width)
{
    float away = abs(fract(height / interval + 0.5) - 0.5) * interval / change;
    float room = smoothstep(3.0, 7.0, interval / change); // pixels between lines: too many are none
    return room * (1.0 - smoothstep(width / 2.0 - 0.5, width / 2.0 + 0.5, away));
}

float contourShare(vec3 position, float change)
{
    if (contourInterval <= 0.0) return 0.0;
    float height = contourPhase + heightAbove(position);
    // Where it is flat a line would spread over all of it.
    change = max(change, contourInterval / 200.0);
    return max(0.55 * lineShare(height, contourInterval, change, 1.2),
               0.9 * lineShare(height, 5.0 * contourInterval, change, 2.2));
}

void main()
{
    vec2 place = (gl_FragCoord.xy - viewportArea.xy) / viewportArea.zw;
    vec4 here = texture(surface, place);
    if (here.y < kCovered || here.w < 0.5) discard;
    vec3 position = eyePosition(place, here.x);
    vec2 pixel = 1.0 / vec2(textureSize(surface, 0));
    vec2 middle = clamp(place, 1.5 * pixel, 1.0 - 1.5 * pixel); // beyond the picture there is nothing to compare with
    vec3 there = positionAt(middle);
    vec3 right = across(positionAt(middle - vec2(pixel.x, 0.0)), there, positionAt(middle + vec2(pixel.x, 0.0)));
    vec3 up = across(positionAt(middle - vec2(0.0, pixel.y)), there, positionAt(middle + vec2(0.0, pixel.y)));
    vec3 normal = normalize(mat3(worldFromEye) * cross(right, up));
    if (normal.z < 0.0) normal = -normal;

    float slope = length(normal.xy) / max(normal.z, 1e-3);
    vec3 color = hasPalette ? getColor(eyeHeight + heightAbove(position)).rgb : kPlainColor;
    color = mix(color, kSteepColor, 0.75 * smoothstep(0.5, 1.5, slope));
    vec3 raised = normalize(vec3(kRelief * normal.xy, normal.z));
    color *= kAmbient + (1.0 - kAmbient) * max(dot(raised, towardsSun), 0.0) / max(towardsSun.z, 0.3);
    vec2 change = vec2(heightAbove(right), heightAbove(up)) / (2.0 * kPixelsPerSample);
    color = mix(color, kContourColor, contourShare(position, length(change)));
    fragColor = vec4(min(color, vec3(1.0)), 1.0);

    // Behind the points that lie on it.
    position.z -= pixelLength(-position.z, 0.0);
    vec2 clip = (gl_ProjectionMatrix * vec4(position, 1.0)).zw;
    gl_FragDepth = clamp(0.5 * clip.x / clip.y + 0.5, 0.0, 1.0);

    pIntAttribute = uvec4(0u);
    pFloatAttribute = vec4(0.0);
    pFPositionAttribute = vec4(0.0);
    pIPositionAttribute = ivec4(0);
}
