#pragma once

#include "store/sample/Geometry.h"
#include "store/sample/Noise.h"

#include <cstdint>

namespace VelBrx::Sample {

/// A pulse on its way.
struct Pulse
{
    Ray ray;
    double gpsTime;
    double scanAngle; ///< degrees from the vertical, negative to the left
    uint16_t sourceId;
    bool isAtEdge;
};

/// Flight lines eastwards that overlap by half, spaced so that they give a little less than the wanted
/// number of points, then any number of cross lines northwards. Each has scan lines across the flight, and
/// these have pulses. Immutable once made; any thread may use it.
class FlightPlan
{
public:
    /// Over a square of `size` metres.
    FlightPlan(double size, uint64_t points);

    uint64_t scanLines() const { return _scanLines; }
    uint64_t pulses() const { return _pulses; }

    /// False where the pulse would miss the landscape.
    bool aim(uint64_t line, uint64_t scanLine, uint64_t place, Random& random, Pulse& pulse) const;

private:
    double middle(uint64_t line) const;

    double _size;
    double _swath;
    uint64_t _mainLines;
    double _spacing; ///< of pulses, metres
    uint64_t _scanLines;
    uint64_t _pulses;
};

} // namespace VelBrx::Sample
