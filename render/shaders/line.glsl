// The outline of an enhanced line, seen from above, in world coordinates.
layout(std430, binding = 6) buffer LinePolygon { vec2 linePolygon[]; };

bool isOnEnhancedLine(dvec2 point)
{
    if (!activelineEnHancement) return false;
    bool inside = false;
    int count = linePolygon.length();
    for (int k = 0, j = count - 1; k < count; j = k++) {
        dvec2 a = dvec2(linePolygon[k]);
        dvec2 b = dvec2(linePolygon[j]);
        if ((a.y > point.y) != (b.y > point.y) && point.x < (b.x - a.x) * (point.y - a.y) / (b.y - a.y) + a.x)
            inside = !inside;
    }
    return inside;
}
