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

// Distance from the eye along the view axis, of a depth in the buffer.
float eyeDistance(float z)
{
    float a = gl_ProjectionMatrix[2][2];
    float b = gl_ProjectionMatrix[3][2];
    float normalized = 2.0 * z - 1.0;
    return PerspectiveMode == 1 ? b / (normalized + a) : (b - normalized) / a;
}

// How far neighbours stand out before a pixel, in both measures.
struct Response
{
    float byDepth;
    float balanced; // how steeply they stand there, from 0 where none does to 1 where all are far before it: however
                    // far, a neighbour darkens by an eighth of all at most
};

// Of the first `neighbours` of the eight: none for what is not shown.
Response response(float z, int neighbours)
{
    const float kSlopeOfHalf = 1.5; // rise over run
    float depth = ztransform(z);
    float distance = eyeDistance(z);
    float pixel = 2.0 / (gl_ProjectionMatrix[1][1] * viewportHeight) * (PerspectiveMode == 1 ? distance : 1.0);
    float run = radius * pixel;
    vec2 last = vec2(Sx, Sy) - 1.0;
    Response sum = Response(0.0, 0.0);
    for (int i = 0; i < neighbours; ++i) {
        ivec2 place = ivec2(clamp(gl_FragCoord.xy + radius * Neigh_pos_2D[i], vec2(0.0), last));
        float neighbour = texelFetch(s2_depth, place, 0).r;
        float neighbourDepth = ztransform(neighbour);
        sum.byDepth += neighbourDepth == kBackground ? 0.0 : max(0.0, depth - neighbourDepth);
        float rise = max(0.0, distance - eyeDistance(neighbour));
        sum.balanced += neighbour == 1.0 ? 0.0 : rise / (rise + kSlopeOfHalf * run);
    }
    return Response(sum.byDepth / 8.0, sum.balanced / 8.0);
}

// Whether the first pass shows nothing at the pixel, or something behind the point. What is behind the visible point is
// shaded too: the two passes need not cover the same pixels at the points' edges, as a window's rows may count from the
// top.
bool isHidden(float visibleDepth)
{
    return ztransform(visibleDepth) == kBackground || gl_FragCoord.z < visibleDepth - kDepthTolerance;
}

void main()
{
    ivec2 pixel = ivec2(gl_FragCoord.xy);
    float visibleDepth = texelFetch(s2_depth, pixel, 0).r;
    if (isHidden(visibleDepth)) discard;
    Response around = response(visibleDepth, isHidden(visibleDepth) ? 0 : 8);
    float darkening = edlBalanced ? around.balanced : around.byDepth * 300.0;
    float shade = exp(-darkening * edlStrength);

    fragColor = vec4(texelFetch(s1_color, pixel, 0).rgb * shade, 1.0);
#ifndef COLOR_ALONE
    pAttribute = uvec4(lpointCloudID, rpointCloudID, 4294967294u, 4294967295u);
    pFloatAttribute = vec4(ogpsTime, ogpsTime, ogpsTime, 2.0);
    pFPositionAttribute = pcFPosition;
    pIPositionAttribute = pcIPosition;
#endif
}
