#version 430 compatibility
// The class colour of a triangle mesh, lit in world coordinates.
layout(location = 13) in int classif;

uniform dmat4 modelMatrix;
uniform vec4 colorArr[256];

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

dvec4 preMulit(dmat4 matrix, vec4 position)
{
    dvec4 product = matrix * dvec4(position);
    return product / product.w;
}

void main()
{
    gl_Position = ftransform();
    vertex.color = colorArr[clamp(classif, 0, 255)];
    vertex.globalPosition = preMulit(modelMatrix, gl_Vertex);
}
