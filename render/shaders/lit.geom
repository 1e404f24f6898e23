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
    dvec4 globalPosition;
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
    // Differences before rounding: world coordinates of seven digits are good to half a metre as floats.
    dvec3 p1 = vertex[1].globalPosition.xyz;
    vec3 to0 = vec3(vertex[0].globalPosition.xyz - p1);
    vec3 to2 = vec3(vertex[2].globalPosition.xyz - p1);
    vec3 normal = -normalize(cross(to0, to2));
    if (normal.z < 0.0) normal = -normal;

    for (int i = 0; i < 3; ++i) {
        gl_Position = gl_in[i].gl_Position;
        triangleColor = vertex[i].color;
        triangleNormal = normal;
        EmitVertex();
    }
    EndPrimitive();
}
