#pragma once

#include <VelOsgDBBrx/OctreeInfo.h>

#include <osg/Vec3d>
#include <osg/ref_ptr>

#include <atomic>
#include <bitset>
#include <future>
#include <optional>
#include <vector>

/// Height z of the ground at the place of a point: of the plane that fits the points of the classes `ground`
/// around it best, in the smallest circle (of radii that double) that has enough of them. None where there
/// are too few within the distance `farthest`, or `cancel` was set. World coordinates. Reads
/// records: not for the viewer's thread.
std::optional<double> groundBelow(const osg::Vec3d& point, const std::bitset<256>& ground,
                                  const std::vector<osg::ref_ptr<OctreeInfo>>& stores, double farthest,
                                  const std::atomic<bool>& cancel);

/// Looks for the ground in a thread of its own.
///
/// Belongs to the viewer's thread. Its end cancels the search and waits for it.
class GroundSearch
{
public:
    GroundSearch() = default;
    ~GroundSearch();
    GroundSearch(const GroundSearch&) = delete;
    GroundSearch& operator=(const GroundSearch&) = delete;

    /// Ends a search that runs, and begins another one.
    void start(const osg::Vec3d& point, const std::bitset<256>& ground,
               const std::vector<osg::ref_ptr<OctreeInfo>>& stores, double farthest);

    bool isRunning() const { return _answer.valid(); }

    /// True once for each search that has ended; `ground` is empty where none was found.
    bool takeAnswer(std::optional<double>& ground);

private:
    void stop();

    std::atomic<bool> _cancel{false};
    std::future<std::optional<double>> _answer;
};
