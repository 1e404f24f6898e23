// Vertex attributes of a cell's points, packed as the cell reader packs them. Geometry of a host that is coloured by
// flight line has HAS_FLIGHT_ATTRIBUTE: its lines are an attribute of their own.
layout(location = 7) in int userData;            // mark of the lens on edits | user data
layout(location = 8) in vec4 normal;
layout(location = 9) in int psidWithIntensity;   // point source id | intensity
layout(location = 10) in int mulAttribute;       // scan angle | flags byte | returns byte
#ifdef HAS_FLIGHT_ATTRIBUTE
layout(location = 11) in float flight;
layout(location = 12) in float gpstime;
const int categoryWithColorR = 0;                // has no source: nothing is hidden
#else
layout(location = 11) in float gpstime;
layout(location = 12) in int categoryWithColorR; // class | hidden bits | red
#endif
layout(location = 13) in int colorGWithColorB;   // green | blue

const int kHiddenBits = 0x00ff0000;              // the byte that holds them, see loading/PointAttributes.h

float storedIntensity()
{
    return float(psidWithIntensity & 0x0000ffff) / 65535.0;
}

vec3 storedColor()
{
    return vec3(float(categoryWithColorR & 0x0000ffff) / 65535.0,
                float((colorGWithColorB >> 16) & 0x0000ffff) / 65535.0,
                float(colorGWithColorB & 0x0000ffff) / 65535.0);
}

int classCode()
{
    return (categoryWithColorR >> 24) & 0x000000ff;
}

int pointMark()                                  // see loading/PointMarks.h
{
    return (userData >> 8) & 0x0000ffff;
}

int pointSourceId()
{
    return (psidWithIntensity >> 16) & 0x0000ffff;
}
