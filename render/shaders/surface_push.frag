#version 430 compatibility
// A pixel of a level of the closed surface: of the samples around it where they are dense enough, else of the coarser
// surface, which closes holes. A pixel is (nearness, share that is covered, the samples' spacing, 1).
#include "surface_sample.glsl"

uniform sampler2D samples;        // of this level
uniform sampler2D coarserSurface; // of the next
uniform bool isCoarsest;
uniform float closing;            // width of the largest hole to close, world units

out vec4 fragColor;

const float kWeights[3] = float[](0.25, 0.5, 0.25);

// How nearness changes along a pixel of the coarser surface, from differences to both sides: an edge of the surface is on
// one side alone, and so is the edge of the picture.
float slopeAlong(ivec2 along, float here, vec2 at, vec2 size)
{
    const float kEdge = 4.0;
    float back = here - texture(coarserSurface, (at - along) / size).x;
    float ahead = texture(coarserSurface, (at + along) / size).x - here;
    if (any(lessThan(at - along, 0.5 * along))) return ahead;
    if (any(greaterThan(at + along, size - 0.5 * along))) return back;
    if (abs(back) > kEdge * abs(ahead)) return ahead;
    if (abs(ahead) > kEdge * abs(back)) return back;
    return 0.5 * (back + ahead);
}

void main()
{
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    ivec2 last = textureSize(samples, 0) - 1;
    vec4 coarser = vec4(0.0);
    vec2 slope = vec2(0.0); // of nearness, along a pixel
    if (!isCoarsest) {
        vec2 size = vec2(textureSize(coarserSurface, 0));
        vec2 at = gl_FragCoord.xy / 2.0;
        vec2 inside = clamp(at, vec2(0.5), size - 0.5);
        coarser = texture(coarserSurface, inside / size);
        slope = vec2(slopeAlong(ivec2(1, 0), coarser.x, inside, size),
                     slopeAlong(ivec2(0, 1), coarser.x, inside, size)) /
                2.0;
        coarser.x += dot(slope, 2.0 * (at - inside));
    }
    bool hasCoarser = coarser.w > 0.0;
    float coarserDistance = hasCoarser ? distanceOf(coarser.x) : 0.0;
    float tolerance = depthTolerance(coarserDistance, float(level + 1));
    bool mayHide = hasCoarser && float(level) < coarser.z;
    float least = mayHide ? nearnessOf(-coarserDistance - tolerance) : kNothing;

    vec4 around[9]; // texels of samples; nearness is kNothing where there is none, or one that is hidden
    float nearest = kNothing;
    float covered = 0.0;
    for (int i = 0; i < 9; ++i) {
        ivec2 offset = ivec2(i % 3 - 1, i / 3 - 1);
        ivec2 inside = clamp(pixel + offset, ivec2(0), last);
        vec4 texel = texelFetch(samples, inside, 0);
        float share = shareOf(texel) * kWeights[offset.x + 1] * kWeights[offset.y + 1];
        covered += inside == pixel + offset ? share : 0.6 * share; // nobody knows what is outside the picture
        if (texel.w == 0.0 || texel.x < least) texel.x = kNothing;
        nearest = max(nearest, texel.x);
        around[i] = texel;
    }
    if (nearest == kNothing) {
        fragColor = coarser;
        return;
    }
    float distance = distanceOf(nearest);
    float farthest = nearnessOf(-distance - depthTolerance(distance, float(level)));
    vec2 pixels = max(floor(viewportArea.zw / kPixelsPerSample), 1.0) / exp2(float(level)); // of the whole picture
    float sum = 0.0, weights = 0.0, spacing = 0.0;
    for (int i = 0; i < 9; ++i) {
        float weight = around[i].x < farthest ? 0.0 : kWeights[i % 3] * kWeights[i / 3];
        sum += weight * (around[i].x - dot(slope, around[i].yz * pixels - gl_FragCoord.xy));
        spacing += weight * spacingOf(around[i]);
        weights += weight;
    }
    float here = sum / weights;
    float share = hasCoarser ? smoothstep(0.2, 0.6, weights) : 1.0;
    if (hasCoarser && abs(coarserDistance - distanceOf(here)) > tolerance) share = step(0.4, weights);
    bool closes = pixelLength(distance, float(level)) <= closing;
    float isPoint = level == 0 && around[4].x != kNothing ? 1.0 : 0.0;
    fragColor = vec4(mix(coarser.x, here, share), max(max(coarser.y, closes ? covered : 0.0), isPoint),
                     mix(coarser.z, spacing / weights, share), 1.0);
}
