#version 430 compatibility
#pragma import_defines(COLOR_ALONE)
// Eye-dome lighting: a pixel is darkened by how far its depth stands out against eight neighbours.
uniform sampler2D s1_color; // the first pass
uniform sampler2D s2_depth;
uniform float Sx; // size of both textures in pixels
uniform float Sy;
uniform float radius; // of the neighbourhood, pixels
uniform float edlStrength;
uniform int PerspectiveMode;
uniform float Zm;
uniform float ZM;
uniform vec2 Neigh_pos_2D[8];
uniform bool edlBalanced; // goes by slopes, whatever distances the depth buffer spans
uniform float viewportHeight; // pixels

out vec4 fragColor;
#ifndef COLOR_ALONE
flat in uint lpointCloudID;
flat in uint rpointCloudID;
flat in float ogpsTime;
flat in vec4 pcFPosition;
flat in ivec4 pcIPosition;

out uvec4 pAttribute;
out vec4 pFloatAttribute;
out vec4 pFPositionAttribute;
out ivec4 pIPositionAttribute;
#endif

const float kBackground = 0.0;

// Depths nearer than the visible one by more than this belong to points that the first pass hid; a few steps of
// a 24-bit depth buffer.
const float kDepthTolerance = 1e-6;

float ztransform(float z)
{
    float depth = PerspectiveMode == 1 ? (z + 1.0) / 2.0 : clamp(1.0 - z, 0.0, 1.0);
    return depth == 1.0 ? kBackground : depth;
}

float depthBeside(vec2 texcoord, int i)
{
    return texture(s2_depth, texcoord + radius / vec2(Sx, Sy) * Neigh_pos_2D[i]).r;
}

float response(float depth, vec2 texcoord)
{
    float sum = 0.0;
    for (int i = 0; i < 8; ++i) {
        float neighbour = ztransform(depthBeside(texcoord, i));
        if (neighbour == kBackground) continue;
        sum += depth == kBackground ? 100.0 : max(0.0, depth - neighbour);
    }
    return sum / 8.0;
}

// Distance from the eye along the view axis, of a depth in the buffer.
float eyeDistance(float z)
{
    float a = gl_ProjectionMatrix[2][2];
    float b = gl_ProjectionMatrix[3][2];
    float normalized = 2.0 * z - 1.0;
    return PerspectiveMode == 1 ? b / (normalized + a) : (b - normalized) / a;
}

// Mean of how steeply the eight neighbours stand before the pixel, from 0 where none does to 1 where all are far
// before it: however far, a neighbour darkens by an eighth of all at most.
float balancedResponse(float z, vec2 texcoord)
{
    const float kSlopeOfHalf = 1.5; // rise over run
    float distance = eyeDistance(z);
    float pixel = 2.0 / (gl_ProjectionMatrix[1][1] * viewportHeight) * (PerspectiveMode == 1 ? distance : 1.0);
    float sum = 0.0;
    for (int i = 0; i < 8; ++i) {
        float neighbour = depthBeside(texcoord, i);
        if (neighbour == 1.0) continue;
        float slope = max(0.0, distance - eyeDistance(neighbour)) / (radius * pixel);
        sum += slope / (slope + kSlopeOfHalf);
    }
    return sum / 8.0;
}

void main()
{
    vec2 texcoord = gl_FragCoord.xy / vec2(Sx, Sy);
    float visibleDepth = texture(s2_depth, texcoord).r;
    float depth = ztransform(visibleDepth);
    float darkening = edlBalanced ? balancedResponse(visibleDepth, texcoord) : response(depth, texcoord) * 300.0;
    float shade = exp(-darkening * edlStrength);

    fragColor = vec4(texture(s1_color, texcoord).rgb * shade, 1.0);
#ifndef COLOR_ALONE
    pAttribute = uvec4(lpointCloudID, rpointCloudID, 4294967294u, 4294967295u);
    pFloatAttribute = vec4(ogpsTime, ogpsTime, ogpsTime, 2.0);
    pFPositionAttribute = pcFPosition;
    pIPositionAttribute = pcIPosition;
#endif
    if (depth == kBackground || gl_FragCoord.z < visibleDepth - kDepthTolerance) discard;
}
