#include "store/sample/FlightPlan.h"

#include <algorithm>
#include <cmath>

namespace VelBrx::Sample {

namespace {

constexpr double kDegrees = 180 / 3.14159265358979323846;
constexpr double kHalfAngleTangent = 0.404; ///< of 22 degrees to each side
constexpr double kOverlap = 0.5;
constexpr double kSpeed = 62;               ///< metres a second
constexpr double kFirstGpsTime = 366192000; ///< adjusted standard GPS time
constexpr double kTurnTime = 190;           ///< seconds between the starts of lines
constexpr double kMainShare = 0.93;         ///< of the points come from the main lines
constexpr double kGroundElevation = 120;
constexpr uint16_t kFirstSourceId = 21;
constexpr uint16_t kFirstCrossSourceId = 91;

} // namespace

FlightPlan::FlightPlan(const Landscape& landscape, uint64_t points, double echoesPerPulse) : _land(landscape)
{
    const double size = landscape.size();
    _swath = std::clamp(size / 2.3, 150.0, 460.0);
    _height = kGroundElevation + _swath / 2 / kHalfAngleTangent;
    const double step = (1 - kOverlap) * _swath;
    const auto count = static_cast<size_t>(std::ceil((size - kOverlap * _swath) / step));
    const double first = (size - step * static_cast<double>(count - 1)) / 2;

    double area = 0;
    for (size_t i = 0; i < count; ++i) {
        const double y = first + step * static_cast<double>(i);
        area += size * (std::min(size, y + _swath / 2) - std::max(0.0, y - _swath / 2));
    }
    _spacing = std::sqrt(area * echoesPerPulse / (kMainShare * static_cast<double>(points)));
    _pulsesPerScanLine = static_cast<uint64_t>(std::max(1.0, std::round(_swath / _spacing)));
    const auto scanLines = static_cast<uint64_t>(std::max(1.0, std::round(size / _spacing)));
    for (size_t i = 0; i < count; ++i)
        _mainLines.push_back({{0, first + step * static_cast<double>(i), 0},
                              {1, 0, 0},
                              static_cast<uint16_t>(kFirstSourceId + i),
                              kFirstGpsTime + kTurnTime * static_cast<double>(i),
                              scanLines});
}

FlightLine FlightPlan::crossLine(uint64_t index) const
{
    FlightLine line = _mainLines.front();
    const double part = std::fmod(0.36 + 0.4 * static_cast<double>(index), 1.0);
    line.start = {part * _land.size(), 0, 0};
    line.along = {0, 1, 0};
    line.sourceId = static_cast<uint16_t>(kFirstCrossSourceId + index);
    line.gpsTime = kFirstGpsTime + kTurnTime * static_cast<double>(_mainLines.size() + index + 1);
    return line;
}

bool FlightPlan::aim(const FlightLine& line, uint64_t scanLine, uint64_t place, Random& random,
                     Pulse& pulse) const
{
    const double inLine = (static_cast<double>(place) + 0.5) / static_cast<double>(_pulsesPerScanLine);
    const double lines = static_cast<double>(scanLine) + inLine;
    const double seconds = lines * _spacing / kSpeed;
    // The aircraft sways; pulses are a little irregular.
    const double roll = 0.011 * std::sin(seconds * 0.7) + 0.003 * std::sin(seconds * 3.1);
    const double pitch = 0.006 * std::sin(seconds * 0.9 + 1);
    const double jitter = 0.3 * _spacing;
    const double tangent = (2 * inLine - 1) * kHalfAngleTangent + roll;
    const Vec3 right{line.along.y, -line.along.x, 0};
    const Vec3 place3 = line.start + line.along * (lines * _spacing + jitter * random.between(-1, 1)) +
                        right * (2.5 * std::sin(seconds * 0.31) + jitter * random.between(-1, 1));
    const double above = _height - kGroundElevation;
    const Vec3 target = place3 + right * (tangent * above) + line.along * (pitch * above);
    pulse.ray.origin = {place3.x, place3.y, _height};
    pulse.ray.direction = normalized(right * tangent + line.along * pitch + Vec3{0, 0, -1});
    pulse.gpsTime = line.gpsTime + seconds;
    pulse.scanAngle = std::atan(tangent) * kDegrees;
    pulse.isAtEdge = place == 0 || place + 1 == _pulsesPerScanLine;
    return target.x >= 0 && target.y >= 0 && target.x < _land.size() && target.y < _land.size();
}

} // namespace VelBrx::Sample
