#include "store/sample/FlightPlan.h"

#include <algorithm>
#include <cmath>

namespace VelBrx::Sample {

namespace {

constexpr double kHalfAngleTangent = 0.404; ///< of 22 degrees to each side
constexpr double kSpeed = 62;               ///< metres a second
constexpr double kFirstGpsTime = 366192000; ///< adjusted standard GPS time
constexpr double kTurnTime = 190;           ///< seconds between the starts of lines
constexpr double kMainShare = 0.9;          ///< of the points come from the main lines, about
constexpr double kEchoesPerPulse = 1.3;     ///< about
constexpr double kGroundElevation = 120;
constexpr uint64_t kFirstSourceId = 21;
constexpr uint64_t kFirstCrossSourceId = 91;

uint64_t atLeastOne(double count)
{
    return static_cast<uint64_t>(std::max(1.0, std::round(count)));
}

} // namespace

FlightPlan::FlightPlan(double size, uint64_t points)
    : _size(size), _swath(std::clamp(size / 2.3, 150.0, 460.0)),
      _mainLines(static_cast<uint64_t>(std::ceil(2 * size / _swath - 1)))
{
    double area = 0;
    for (uint64_t i = 0; i < _mainLines; ++i)
        area += size * (std::min(size, middle(i) + _swath / 2) - std::max(0.0, middle(i) - _swath / 2));
    _spacing = std::sqrt(area * kEchoesPerPulse / (kMainShare * static_cast<double>(points)));
    _scanLines = atLeastOne(size / _spacing);
    _pulses = atLeastOne(_swath / _spacing);
}

/// Distance of a line from the edge of the landscape to its right, or to the left of a cross line.
double FlightPlan::middle(uint64_t line) const
{
    if (line >= _mainLines)
        return std::fmod(0.36 + 0.4 * static_cast<double>(line - _mainLines), 1.0) * _size;
    return (_size - _swath / 2 * static_cast<double>(_mainLines - 1)) / 2 +
           _swath / 2 * static_cast<double>(line);
}

bool FlightPlan::aim(uint64_t line, uint64_t scanLine, uint64_t place, Random& random, Pulse& pulse) const
{
    const bool isCross = line >= _mainLines;
    const Vec3 along = isCross ? Vec3::UnitY() : Vec3::UnitX();
    const Vec3 right(along.y(), -along.x(), 0);
    const double inLine = (static_cast<double>(place) + 0.5) / static_cast<double>(_pulses);
    const double way = (static_cast<double>(scanLine) + inLine) * _spacing;
    const double seconds = way / kSpeed;
    // The aircraft sways; pulses are a little irregular.
    const double tangent = (2 * inLine - 1) * kHalfAngleTangent + 0.011 * std::sin(seconds * 0.7) +
                           0.003 * std::sin(seconds * 3.1);
    const double pitch = 0.006 * std::sin(seconds * 0.9 + 1);
    const double forward = way + 0.3 * _spacing * random.between(-1, 1);
    const double aside = 2.5 * std::sin(seconds * 0.31) + 0.3 * _spacing * random.between(-1, 1);
    const double height = _swath / 2 / kHalfAngleTangent;
    const Vec3 below = right.cwiseAbs() * middle(line) + along * forward + right * aside;
    const Vec3 beam = right * tangent + along * pitch - Vec3::UnitZ();
    const Vec3 target = below + beam * height;

    pulse.ray = {below + Vec3(0, 0, kGroundElevation + height), beam.normalized()};
    pulse.gpsTime = kFirstGpsTime + kTurnTime * static_cast<double>(line) + seconds;
    pulse.scanAngle = std::atan(tangent) * 180 / 3.14159265358979323846;
    pulse.sourceId =
        static_cast<uint16_t>(isCross ? kFirstCrossSourceId + line - _mainLines : kFirstSourceId + line);
    pulse.isAtEdge = place == 0 || place + 1 == _pulses;
    return target.x() >= 0 && target.y() >= 0 && target.x() < _size && target.y() < _size;
}

} // namespace VelBrx::Sample
