// What a pick reads back of a point. The application defines COLOR_ALONE where the camera has no target for it.
#pragma import_defines(COLOR_ALONE)
#ifndef COLOR_ALONE
flat out float ogpsTime;
flat out vec4 pcFPosition;
flat out ivec4 pcIPosition;

// Splits a coordinate so that integer and float targets hold it whole: integer part + fraction / 1E8.
void writePickAttributes(dvec3 globalPosition)
{
    ogpsTime = gpstime;
    pcIPosition = ivec4(ivec3(globalPosition), int(0xFFFFFFFFu));
    pcFPosition = vec4(vec3((globalPosition - dvec3(pcIPosition.xyz)) * 1E8LF), -1.0);
}
#else
void writePickAttributes(dvec3 globalPosition) {}
#endif
