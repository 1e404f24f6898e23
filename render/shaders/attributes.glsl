// Vertex attributes of a cell's points, packed as the cell reader packs them.
layout(location = 7) in int userData;
layout(location = 8) in vec4 normal;
layout(location = 9) in int psidWithIntensity;   // point source id | intensity
layout(location = 10) in int mulAttribute;       // scan angle | flags byte | returns byte
layout(location = 11) in float gpstime;
layout(location = 12) in int categoryWithColorR; // class | hidden bits | red
layout(location = 13) in int colorGWithColorB;   // green | blue

const int kHiddenBits = 0x00ff0000;

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

int pointSourceId()
{
    return (psidWithIntensity >> 16) & 0x0000ffff;
}
