#version 430 compatibility
// The fragment stage of every point program: the colour, and what a pick reads back.
#pragma import_defines(COLOR_ALONE)
uniform uint lpcID; // identifier of the point cloud, low and high half
uniform uint rpcID;

in float cansee;
in vec4 color;
out vec4 fragColor;
#ifndef COLOR_ALONE
flat in float ogpsTime;
flat in vec4 pcFPosition;
flat in ivec4 pcIPosition;

out uvec4 pIntAttribute;
out vec4 pFloatAttribute;
out vec4 pFPositionAttribute;
out ivec4 pIPositionAttribute;
#endif

void main()
{
    if (cansee < 1.0) discard;
    fragColor = color;
#ifndef COLOR_ALONE
    pIntAttribute = uvec4(lpcID, rpcID, 4294967294u, 4294967295u);
    pFloatAttribute = vec4(ogpsTime, ogpsTime, ogpsTime, 2.0);
    pFPositionAttribute = pcFPosition;
    pIPositionAttribute = pcIPosition;
#endif
}
