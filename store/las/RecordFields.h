#pragma once

namespace VelBrx {

/// How much of the source records a reader asks for, each with what comes before it. A compressed source may
/// leave the other fields at their values in another of its points, which saves decoding them.
enum class RecordFields
{
    Places,          ///< X, Y and Z and the numbers of returns
    PlacesAndColors, ///< red, green and blue too
    All
};

} // namespace VelBrx
