// How large points are. The application defines SIZED_BY_SPACING where they are as large as the space between them:
// spacing.cells is then the tree of the cells that are loaded.
#pragma import_defines(SIZED_BY_SPACING)
#ifdef SIZED_BY_SPACING
layout(std430, binding = 11) readonly buffer PointSpacing
{
    vec4 cube;     // smallest corner and edge, in local coordinates
    uvec2 cells[]; // number of the first child, with a bit for each octant that has one in the low byte; distance
                   // of the points as a float. The root is the first cell.
}
spacing;
uniform vec4 spacingSizes; // pixels of a unit of length where w is 1, smallest and largest size, deepest level

float spacingAt(vec3 place)
{
    vec3 inCell = (place - spacing.cube.xyz) / spacing.cube.w;
    uvec2 cell = spacing.cells[0];
    for (int level = 0; level < int(spacingSizes.w); ++level) {
        inCell *= 2.0;
        uvec3 upper = uvec3(greaterThanEqual(inCell, vec3(1.0)));
        uint octant = upper.x | upper.y << 1 | upper.z << 2;
        if ((cell.x >> octant & 1u) == 0u) break;
        inCell -= vec3(upper);
        cell = spacing.cells[(cell.x >> 8) + bitCount(cell.x & ((1u << octant) - 1u))];
    }
    return uintBitsToFloat(cell.y);
}

float sizeOfPoint(float w)
{
    return clamp(spacingAt(gl_Vertex.xyz) * spacingSizes.x / max(w, 1e-30), spacingSizes.y, spacingSizes.z);
}
#else
float sizeOfPoint(float w)
{
    return float(pointSize);
}
#endif
