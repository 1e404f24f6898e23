// Planes (a, b, c, d) in world coordinates; a point is inside where a x + b y + c z + d >= 0.
layout(std430, binding = 5) buffer Planes { vec4 sectionPlane[]; };
layout(std430, binding = 7) buffer CloudPlanes { dvec4 cloudPlane[]; };

// Inside every plane of at least one group of sectionNum planes.
bool isInClipPlane(dvec4 globalPosition)
{
    if (sectionNum < 1) return false;
    int groups = sectionPlane.length() / sectionNum;
    for (int group = 0; group < groups; ++group) {
        bool inside = true;
        for (int i = 0; inside && i < sectionNum; ++i)
            inside = dot(dvec4(sectionPlane[group * sectionNum + i]) + sectionOffset, globalPosition) >= 0.0;
        if (inside) return true;
    }
    return false;
}

bool isInClipBox(dvec4 globalPosition)
{
    for (int i = 0; i < 8; ++i) {
        if (dot(clipPlane[i], globalPosition) < 0.0) return false;
    }
    return true;
}

bool isInCloudPlanes(dvec4 globalPosition)
{
    for (int i = 0; i < cloudPlaneNum; ++i) {
        if (dot(cloudPlane[i], globalPosition) < 0.0) return false;
    }
    return true;
}

bool isInFixedFunctionPlanes(vec4 eyePosition)
{
    for (int i = 0; i < gl_MaxClipPlanes; ++i) {
        if (dot(eyePosition, gl_ClipPlane[i]) < 0.0) return false;
    }
    return true;
}
