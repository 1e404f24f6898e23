#pragma once

#include <VelOsgDBBrx/PointSelection.h>

#include <optional>

/// What edits on a picture leave out beside what is not drawn: of the points under an outline those that lie
/// behind others, and those whose attributes are not meant.
struct EditLimits
{
    /// Only the front surface: what the eye sees.
    struct Front
    {
        std::optional<double> tolerance; ///< units of the world; empty: twice the mean distance of points
        std::optional<double> radius;    ///< pixels; empty: what closes the gaps between points in front
    };

    std::optional<Front> front;
    VelOsgDBBrx::AttributeRanges attributes;
};
