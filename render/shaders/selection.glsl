// Polygons drawn on the screen, kept with the matrices of the moment, so that they stay on the data.
layout(std430, binding = 0) buffer mvps { float mvp[]; };         // 4 a polygon: gives the clip-space w
layout(std430, binding = 1) buffer mvpws { float mvpw[]; };       // 16 a polygon: to window coordinates
layout(std430, binding = 2) buffer polygons { float polygon[]; }; // x, y a vertex
layout(std430, binding = 3) buffer records { uint record[]; };    // vertex count, inside flag, group
layout(std430, binding = 4) buffer gtypes { uint gtype[]; };      // selects (1) or segments (0), keep mode

// The polygon that is looked at next, and its first vertex.
struct PolygonCursor
{
    int index;
    int vertex;
};

bool isBehindCamera(vec4 position, int index)
{
    return dot(position, vec4(mvp[4 * index], mvp[4 * index + 1], mvp[4 * index + 2], mvp[4 * index + 3])) < 0.0;
}

vec2 windowPosition(vec4 position, int index)
{
    vec4 window = vec4(0.0);
    for (int column = 0; column < 4; ++column) {
        int first = 16 * index + 4 * column;
        window += position[column] * vec4(mvpw[first], mvpw[first + 1], mvpw[first + 2], mvpw[first + 3]);
    }
    return window.xy / window.w;
}

bool isInsidePolygon(vec2 point, int firstVertex, int vertexCount)
{
    bool inside = false;
    for (int k = 0, j = vertexCount - 1; k < vertexCount; j = k++) {
        vec2 a = vec2(polygon[2 * (firstVertex + k)], polygon[2 * (firstVertex + k) + 1]);
        vec2 b = vec2(polygon[2 * (firstVertex + j)], polygon[2 * (firstVertex + j) + 1]);
        if ((a.y > point.y) != (b.y > point.y) && point.x < (b.x - a.x) * (point.y - a.y) / (b.y - a.y) + a.x)
            inside = !inside;
    }
    return inside;
}

// Whether the polygons of a group, applied in order, select the point. Moves the cursor behind the group.
bool groupSelects(uint group, vec4 position, inout PolygonCursor cursor)
{
    bool selected = false;
    for (; cursor.index < record.length() / 3 && record[3 * cursor.index + 2] == group; ++cursor.index) {
        int vertexCount = int(record[3 * cursor.index]);
        if (!isBehindCamera(position, cursor.index) &&
            isInsidePolygon(windowPosition(position, cursor.index), cursor.vertex, vertexCount))
            selected = record[3 * cursor.index + 1] == 1u;
        cursor.vertex += vertexCount;
    }
    return selected;
}

// False when a segmentation group hides the point.
bool isVisible(vec4 position)
{
    PolygonCursor cursor = PolygonCursor(0, 0);
    for (int g = 0; g < gtype.length(); g += 2) {
        bool selected = groupSelects(uint(g / 2), position, cursor);
        if (gtype[g] == 0u && selected == (gtype[g + 1] == 1u)) return false;
    }
    return true;
}

// True when a selection group selects the point.
bool isSelect(vec4 position)
{
    PolygonCursor cursor = PolygonCursor(0, 0);
    for (int g = 0; g < gtype.length(); g += 2) {
        bool selected = groupSelects(uint(g / 2), position, cursor);
        if (gtype[g] == 1u && selected) return true;
    }
    return false;
}
