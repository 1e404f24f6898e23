#version 430 compatibility
// Leaves no mark of a point in any target.
out vec4 fragColor;
out uvec4 pIntAttribute;
out vec4 pFloatAttribute;
out vec4 pFPositionAttribute;
out ivec4 pIPositionAttribute;

void main()
{
    fragColor = vec4(0.0);
    pIntAttribute = uvec4(0u);
    pFloatAttribute = vec4(0.0);
    pFPositionAttribute = vec4(0.0);
    pIPositionAttribute = ivec4(0);
}
