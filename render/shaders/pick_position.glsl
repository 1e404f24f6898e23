flat out vec4 pcFPosition;
flat out ivec4 pcIPosition;

// Splits a coordinate so that integer and float targets hold it whole: integer part + fraction / 1E8.
void writePickPosition(dvec3 globalPosition)
{
    pcIPosition = ivec4(ivec3(globalPosition), int(0xFFFFFFFFu));
    pcFPosition = vec4(vec3((globalPosition - dvec3(pcIPosition.xyz)) * 1E8LF), -1.0);
}
