#pragma once

#include "store/sample/Noise.h"
#include "store/sample/Scanner.h"

#include <cstdint>
#include <vector>

namespace VelBrx::Sample {

/// A straight flight over the landscape. Scan lines lie across it, pulses along them.
struct FlightLine
{
    Vec3 start; ///< below the aircraft, at the edge of the landscape
    Vec3 along; ///< unit vector of the flight
    uint16_t sourceId;
    double gpsTime; ///< of its first scan line
    uint64_t scanLines;
};

/// A pulse on its way.
struct Pulse
{
    Ray ray;
    double gpsTime;
    double scanAngle; ///< degrees from the vertical, negative to the left
    bool isAtEdge;
};

/// Flight lines eastwards that overlap by half, spaced so that they give a little less than the wanted
/// number of points, then cross lines northwards that give the rest. Immutable once made; any thread may use
/// it.
class FlightPlan
{
public:
    /// `echoesPerPulse` is what to expect on the landscape.
    FlightPlan(const Landscape& landscape, uint64_t points, double echoesPerPulse);

    const std::vector<FlightLine>& mainLines() const { return _mainLines; }

    /// Any number of cross lines can be flown.
    FlightLine crossLine(uint64_t index) const;

    uint64_t pulsesPerScanLine() const { return _pulsesPerScanLine; }

    /// False where the pulse would miss the landscape.
    bool aim(const FlightLine& line, uint64_t scanLine, uint64_t place, Random& random, Pulse& pulse) const;

private:
    const Landscape& _land;
    double _swath;
    double _height; ///< of the flight above the sea
    double _spacing = 1;
    uint64_t _pulsesPerScanLine = 1;
    std::vector<FlightLine> _mainLines;
};

} // namespace VelBrx::Sample
