#pragma once

#include <cstdint>
#include <string>

/// A small LAS 1.2 file for tests that look at pictures: a square horizontal grid of `side` x `side` points,
/// a metre apart, in 8-bit colours, with millimetre scale and 7-digit coordinates.
struct TestSurvey
{
    int side = 100;
    double x = 1234500.0; ///< of the first point
    double y = 6543200.0;
    double z = 100.0;
    double slope = 0.0; ///< metres up a metre to the east
    double step = 0.0;  ///< metres that the eastern half lies higher
    uint8_t red = 255;
    uint8_t green = 128;
    uint8_t blue = 0;
    int classes = 1; ///< columns have the classes 2, 3, ... in turn, so many of them

    /// Height of a column of points above `z`, metres.
    double heightOf(int column) const { return slope * column + (2 * column >= side ? step : 0.0); }

    bool write(const std::string& path) const;
};
