// A gradient over a range of values: elevationEntry holds the value at position 0 and the span to position 1.
struct ColorEntry
{
    vec4 m_color;
    float m_pos;
};
layout(std430, binding = 9) buffer colorEntrys { ColorEntry entry[]; };
uniform vec2 elevationEntry;

// The colour at a position, or `outside` where no segment holds it.
vec4 segmentColor(float percentage, vec4 outside)
{
    for (int i = 1; i < entry.length(); ++i) {
        float low = entry[i - 1].m_pos;
        float high = entry[i].m_pos;
        if (low <= percentage && percentage <= high && low < high) {
            vec4 from = entry[i - 1].m_color;
            return vec4((from + (entry[i].m_color - from) * (percentage - low) / (high - low)).rgb, 1.0);
        }
    }
    return outside;
}

// Values outside the range get the colours at its ends.
vec4 getColor(float value)
{
    float percentage = (value - elevationEntry.x) / elevationEntry.y;
    percentage = min(max(0.0, percentage), 0.99999);
    return segmentColor(percentage, entry[entry.length() - 1].m_color);
}

// The gradient repeats beyond its range.
vec4 getColorByCircle(float value)
{
    bool below = value < elevationEntry.x;
    float t = (below ? elevationEntry.x - value : value - elevationEntry.x) / elevationEntry.y;
    float fraction = t - float(int(t));
    return segmentColor(below ? 1.0 - fraction : fraction, vec4(1.0));
}
