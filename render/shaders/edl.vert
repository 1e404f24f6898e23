#version 430 compatibility
// Draws the cloud once more, to shade what the first pass drew. Every pixel of the first pass has to be covered
// again, so points are at least as large as there. The application defines NO_EXTRAS where no line is enhanced.
#pragma import_defines(NO_EXTRAS)
layout(location = 11) in float gpstime;

#include "uniforms.glsl"
#ifndef NO_EXTRAS
#include "line.glsl"
#endif
#include "pick_position.glsl"
#include "point_size.glsl"

uniform uint lpcID; // identifier of the point cloud, low and high half
uniform uint rpcID;

const float kLargestLinePointOfAMode = 10.0;

flat out uint lpointCloudID;
flat out uint rpointCloudID;

void main()
{
    gl_TexCoord[0] = gl_MultiTexCoord0;
    gl_Position = ftransform();
    gl_ClipVertex = gl_ModelViewMatrix * gl_Vertex; // for fixed-function clip planes
    lpointCloudID = lpcID;
    rpointCloudID = rpcID;

    dvec4 globalPosition = modelMatrix * dvec4(gl_Vertex);
    gl_PointSize = sizeOfPoint(gl_Position.w);
#ifndef NO_EXTRAS
    if (isOnEnhancedLine(globalPosition.xy))
        gl_PointSize = max(float(lineEnHancementPointSize), kLargestLinePointOfAMode);
#endif
    writePickAttributes(globalPosition.xyz);
}
