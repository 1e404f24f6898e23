#include "viewer/measure/GroundBelow.h"

#include <VelOsgDBBrx/PointPicker.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {

constexpr size_t kEnoughPoints = 12;
constexpr size_t kMostPoints = 100000;
constexpr int kDoublings = 8; ///< from the smallest circle to the largest one

std::vector<osg::Vec3d> groundAround(const osg::Vec3d& point, double radius, const std::bitset<256>& ground,
                                     const std::vector<osg::ref_ptr<OctreeInfo>>& stores,
                                     const std::atomic<bool>& cancel)
{
    constexpr double kAnyHeight = 1e9;
    const osg::Vec3d reach(radius, radius, kAnyHeight);
    std::vector<osg::Vec3d> around; // from the point on
    for (const osg::ref_ptr<OctreeInfo>& store : stores) {
        for (const VelOsgDBBrx::StoredPoint& found : VelOsgDBBrx::storedPointsIn(
                 {point - reach, point + reach}, ground, *store, kMostPoints, &cancel)) {
            const osg::Vec3d step = found.position - point;
            if (std::hypot(step.x(), step.y()) <= radius) around.push_back(step);
        }
    }
    return around;
}

/// Height of the best plane through points at x = y = 0; their mean where they stand in a line.
double heightOfPlane(const std::vector<osg::Vec3d>& points)
{
    osg::Vec3d mean;
    for (const osg::Vec3d& point : points)
        mean += point / static_cast<double>(points.size());
    double xx = 0;
    double xy = 0;
    double yy = 0;
    double xz = 0;
    double yz = 0;
    for (const osg::Vec3d& point : points) {
        const osg::Vec3d from = point - mean;
        xx += from.x() * from.x();
        xy += from.x() * from.y();
        yy += from.y() * from.y();
        xz += from.x() * from.z();
        yz += from.y() * from.z();
    }
    constexpr double kFlat = 1e-6;
    const double determinant = xx * yy - xy * xy;
    if (determinant <= kFlat * (xx + yy) * (xx + yy)) return mean.z();
    const double slopeX = (xz * yy - yz * xy) / determinant;
    const double slopeY = (yz * xx - xz * xy) / determinant;
    return mean.z() - slopeX * mean.x() - slopeY * mean.y();
}

} // namespace

std::optional<double> groundBelow(const osg::Vec3d& point, const std::bitset<256>& ground,
                                  const std::vector<osg::ref_ptr<OctreeInfo>>& stores, double farthest,
                                  const std::atomic<bool>& cancel)
{
    for (int halvings = kDoublings; halvings >= 0 && !cancel; --halvings) {
        const double radius = std::ldexp(farthest, -halvings);
        const std::vector<osg::Vec3d> around = groundAround(point, radius, ground, stores, cancel);
        if (cancel) break;
        if (around.size() >= kEnoughPoints) return point.z() + heightOfPlane(around);
    }
    return std::nullopt;
}

GroundSearch::~GroundSearch()
{
    stop();
}

void GroundSearch::stop()
{
    _cancel = true;
    if (_answer.valid()) _answer.get();
    _cancel = false;
}

void GroundSearch::start(const osg::Vec3d& point, const std::bitset<256>& ground,
                         const std::vector<osg::ref_ptr<OctreeInfo>>& stores, double farthest)
{
    stop();
    _answer =
        std::async(std::launch::async, [=] { return groundBelow(point, ground, stores, farthest, _cancel); });
}

bool GroundSearch::takeAnswer(std::optional<double>& ground)
{
    if (!_answer.valid() || _answer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        return false;
    ground = _answer.get();
    return true;
}
