#version 430 compatibility
// Diffuse light of the first fixed-function light.
in vec4 triangleColor;
flat in vec3 triangleNormal;

layout(location = 0) out vec4 gcolor;

void main()
{
    vec3 toLight = normalize(gl_LightSource[0].position.xyz);
    float facing = max(dot(normalize(gl_NormalMatrix * triangleNormal), toLight), 0.0);
    gcolor = vec4((gl_LightSource[0].diffuse * facing * triangleColor).rgb, 1.0);
}
