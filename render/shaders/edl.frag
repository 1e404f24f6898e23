#version 430 compatibility
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

flat in uint lpointCloudID;
flat in uint rpointCloudID;
flat in float ogpsTime;
flat in vec4 pcFPosition;
flat in ivec4 pcIPosition;

out vec4 fragColor;
out uvec4 pAttribute;
out vec4 pFloatAttribute;
out vec4 pFPositionAttribute;
out ivec4 pIPositionAttribute;

const float kBackground = 0.0;

// Depths nearer than the visible one by more than this belong to points that the first pass hid; a few steps of
// a 24-bit depth buffer.
const float kDepthTolerance = 1e-6;

float ztransform(float z)
{
    float depth = PerspectiveMode == 1 ? (z + 1.0) / 2.0 : clamp(1.0 - z, 0.0, 1.0);
    return depth == 1.0 ? kBackground : depth;
}

float response(float depth, vec2 texcoord)
{
    vec2 uvRadius = radius / vec2(Sx, Sy);
    float sum = 0.0;
    for (int i = 0; i < 8; ++i) {
        float neighbour = ztransform(texture(s2_depth, texcoord + uvRadius * Neigh_pos_2D[i]).r);
        if (neighbour == kBackground) continue;
        sum += depth == kBackground ? 100.0 : max(0.0, depth - neighbour);
    }
    return sum / 8.0;
}

void main()
{
    vec2 texcoord = gl_FragCoord.xy / vec2(Sx, Sy);
    float visibleDepth = texture(s2_depth, texcoord).r;
    float depth = ztransform(visibleDepth);
    float shade = exp(-response(depth, texcoord) * 300.0 * edlStrength);

    fragColor = vec4(texture(s1_color, texcoord).rgb * shade, 1.0);
    pAttribute = uvec4(lpointCloudID, rpointCloudID, 4294967294u, 4294967295u);
    pFloatAttribute = vec4(ogpsTime, ogpsTime, ogpsTime, 2.0);
    pFPositionAttribute = pcFPosition;
    pIPositionAttribute = pcIPosition;
    if (depth == kBackground || gl_FragCoord.z < visibleDepth - kDepthTolerance) discard;
}
