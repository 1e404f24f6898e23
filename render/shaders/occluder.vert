#version 430 compatibility
// Things that are no points, where points are picked: they hide what is behind them.
void main()
{
    gl_Position = ftransform();
    gl_ClipVertex = gl_ModelViewMatrix * gl_Vertex;
}
