#version 430 compatibility
// Height of a triangle mesh through a gradient; the triangles are lit as they stand in local coordinates.
#include "gradient.glsl"

uniform dmat4 modelMatrix;
uniform bool isCircle;

out VertexAttribute
{
    vec4 color;
    dvec4 globalPosition;
}
vertex;

out gl_PerVertex
{
    vec4 gl_Position;
};

void main()
{
    gl_Position = ftransform();
    float height = float((modelMatrix * dvec4(gl_Vertex)).z);
    vertex.color = isCircle ? getColorByCircle(height) : getColor(height);
    vertex.globalPosition = dvec4(gl_Vertex);
}
