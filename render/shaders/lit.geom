#version 430 compatibility
// Gives each triangle its upward normal.
layout(triangles) in;
layout(triangle_strip, max_vertices = 3) out;

in gl_PerVertex
{
    vec4 gl_Position;
}
gl_in[];

in VertexAttribute
{
    vec4 color;
    vec4 globalPosition;
}
vertex[];

out gl_PerVertex
{
    vec4 gl_Position;
};
out vec4 triangleColor;
flat out vec3 triangleNormal;

void main()
{
    vec3 p0 = vertex[0].globalPosition.xyz;
    vec3 p1 = vertex[1].globalPosition.xyz;
    vec3 p2 = vertex[2].globalPosition.xyz;
    vec3 normal = -normalize(cross(p0 - p1, p2 - p1));
    if (normal.z < 0.0) normal = -normal;

    for (int i = 0; i < 3; ++i) {
        gl_Position = gl_in[i].gl_Position;
        triangleColor = vertex[i].color;
        triangleNormal = normal;
        EmitVertex();
    }
    EndPrimitive();
}
