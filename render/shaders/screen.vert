#version 430 compatibility
// A rectangle over all that is drawn to.
void main()
{
    gl_Position = vec4(gl_Vertex.xy, 0.0, 1.0);
}
