#pragma once

#include <VelOsgDBBrx/GlobalObject.h>

#include <osg/GraphicsContext>
#include <osg/ref_ptr>
#include <osgViewer/Viewer>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

/// The library's services for one context: paging, about a point a pixel, and compiling of cells. They end
/// with this object, which must die before the viewer that owns the context.
class ContextServices
{
public:
    /// Starts the services, with at most `budget` points drawn.
    ContextServices(osg::GraphicsContext* context, std::optional<uint64_t> budget);
    ~ContextServices();
    ContextServices(const ContextServices&) = delete;
    ContextServices& operator=(const ContextServices&) = delete;

    /// At most so many points are drawn from now on.
    void setBudget(uint64_t points) const;

    /// Nothing is on its way into the scene or out of it.
    bool isSettled() const;

    /// Draws frames until `isSettled` for a camera that stands still; false when `timeout` comes first, or
    /// `*cancel` becomes true.
    bool settle(osgViewer::Viewer& viewer, std::chrono::duration<double> timeout,
                const std::atomic<bool>* cancel = nullptr) const;

private:
    const osg::ref_ptr<osg::GraphicsContext> _context;
};
