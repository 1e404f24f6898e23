#include <VelBrx/ClassNames.h>

#include <array>

const char* VelBrx::className(unsigned code)
{
    static constexpr std::array<const char*, 23> kNames = {
        "created, never classified",
        "unclassified",
        "ground",
        "low vegetation",
        "medium vegetation",
        "high vegetation",
        "building",
        "low point (noise)",
        "model key-point",
        "water",
        "rail",
        "road surface",
        "overlap",
        "wire - guard (shield)",
        "wire - conductor (phase)",
        "transmission tower",
        "wire-structure connector",
        "bridge deck",
        "high noise",
        "overhead structure",
        "ignored ground",
        "snow",
        "temporal exclusion",
    };
    return code < kNames.size() ? kNames[code] : nullptr;
}
