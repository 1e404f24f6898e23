#pragma once

#include "viewer/display/ColorMode.h"

#include <VelOsgDBBrx/IPointCloud.h>
#include <osg/ref_ptr>

#include <atomic>
#include <thread>
#include <vector>

/// How often the values of a mode with a gradient occur, as far as the coarse cells of the clouds tell;
/// counted on a thread of its own. Belongs to one thread.
class Histogram
{
public:
    static constexpr int kBins = 64;

    /// Over a span of values; those beyond are left out.
    Histogram(std::vector<osg::ref_ptr<VelOsgDBBrx::IPointCloud>> clouds, ColorMode mode,
              const ColorSpan& span);

    /// Gives up when it is not done.
    ~Histogram();
    Histogram(const Histogram&) = delete;
    Histogram& operator=(const Histogram&) = delete;

    const ColorSpan& span() const { return _span; }
    bool isCounted() const { return _counted; }

    /// A share of the fullest bin, from the lowest value on; none before all are counted.
    const std::vector<float>& bins() const { return _counted ? _bins : _none; }

private:
    void count();

    const std::vector<osg::ref_ptr<VelOsgDBBrx::IPointCloud>> _clouds;
    const ColorMode _mode;
    const ColorSpan _span;
    const std::vector<float> _none;
    std::vector<float> _bins = std::vector<float>(kBins); ///< of the thread until all are counted
    std::atomic<bool> _cancel{false};
    std::atomic<bool> _counted{false};
    std::thread _thread; ///< uses the others
};
