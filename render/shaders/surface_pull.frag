#version 430 compatibility
// A pixel of a coarser level of samples, of the four below it: of what is nearest among them.
#include "surface_sample.glsl"

uniform sampler2D finerSamples;

out vec4 fragColor;

void main()
{
    ivec2 corner = 2 * ivec2(gl_FragCoord.xy);
    ivec2 last = textureSize(finerSamples, 0) - 1;
    vec4 children[4]; // texels; nearness is kNothing where there is none
    float nearest = kNothing;
    float inside = 0.0;
    float occupied = 0.0;
    for (int i = 0; i < 4; ++i) {
        ivec2 place = corner + ivec2(i & 1, i >> 1);
        vec4 texel = texelFetch(finerSamples, min(place, last), 0);
        bool isInside = place == min(place, last);
        bool isEmpty = texel.w == 0.0 || !isInside;
        if (isEmpty) texel = vec4(kNothing, 0.0, 0.0, 0.0);
        inside += isInside ? 1.0 : 0.0;
        occupied += isEmpty ? 0.0 : 1.0;
        nearest = max(nearest, texel.x);
        children[i] = texel;
    }
    fragColor = vec4(0.0);
    if (nearest == kNothing) return;

    float distance = distanceOf(nearest);
    float farthest = nearnessOf(-distance - depthTolerance(distance, float(level)));
    float dense = 0.0;
    float share = 0.0;
    Sample sum = Sample(0.0, vec2(0.0), 0.0, 0.0, 0.0);
    for (int i = 0; i < 4; ++i) {
        share += shareOf(children[i]);
        float count = children[i].x < farthest ? 0.0 : countOf(children[i]);
        sum.nearness += count * children[i].x;
        sum.place += count * children[i].yz;
        sum.count += count;
        float isDense = count < kFewPoints ? 0.0 : 1.0;
        sum.spacing += isDense * spacingOf(children[i]);
        dense += isDense;
    }
    bool isSparse = dense == 0.0;
    sum.nearness /= sum.count;
    sum.place /= sum.count;
    sum.spacing = isSparse ? float(level) : sum.spacing / dense;
    sum.share = isSparse ? min(0.4 * occupied * 4.0 / inside, 1.0) : share / inside;
    fragColor = texelOf(sum);
}
