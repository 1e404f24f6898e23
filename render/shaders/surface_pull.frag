#version 430 compatibility
// A pixel of a coarser level of samples, of the four below it: of what is nearest among them.
#include "surface_sample.glsl"

uniform sampler2D finerSamples;

out vec4 fragColor;

void main()
{
    ivec2 corner = 2 * ivec2(gl_FragCoord.xy);
    ivec2 size = textureSize(finerSamples, 0);
    Sample children[4];
    float nearest = 0.0;
    float inside = 0.0;
    float occupied = 0.0;
    for (int i = 0; i < 4; ++i) {
        ivec2 place = corner + ivec2(i & 1, i >> 1);
        children[i].count = 0.0;
        if (any(greaterThanEqual(place, size))) continue;
        inside += 1.0;
        children[i] = sampleOf(texelFetch(finerSamples, place, 0));
        if (children[i].count == 0.0) continue;
        nearest = occupied > 0.0 ? max(nearest, children[i].nearness) : children[i].nearness;
        occupied += 1.0;
    }
    fragColor = vec4(0.0);
    if (occupied == 0.0) return;

    float distance = distanceOf(nearest);
    float farthest = distance + depthTolerance(distance, float(level));
    float dense = 0.0;
    float share = 0.0;
    Sample sum = Sample(0.0, vec2(0.0), 0.0, 0.0, 0.0);
    for (int i = 0; i < 4; ++i) {
        Sample child = children[i];
        if (child.count == 0.0) continue;
        share += child.share;
        if (distanceOf(child.nearness) > farthest) continue;
        sum.nearness += child.count * child.nearness;
        sum.place += child.count * child.place;
        sum.count += child.count;
        if (child.count < kFewPoints) continue;
        sum.spacing += child.spacing;
        dense += 1.0;
    }
    bool isSparse = dense == 0.0;
    sum.nearness /= sum.count;
    sum.place /= sum.count;
    sum.spacing = isSparse ? float(level) : sum.spacing / dense;
    sum.share = isSparse ? min(0.4 * occupied * 4.0 / inside, 1.0) : share / inside;
    fragColor = texelOf(sum);
}
