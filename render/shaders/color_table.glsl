uniform vec4 colorArr[256];

// The table's colour of an index; a colour of alpha 0 hides the point.
vec4 tableColor(int index)
{
    vec4 tabled = colorArr[clamp(index, 0, 255)];
    if (tabled.a == 0.0) cansee = 0.0;
    return tabled;
}
