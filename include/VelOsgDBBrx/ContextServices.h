#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/GlobalObject.h>

#include <osg/GraphicsContext>
#include <osg/ref_ptr>
#include <osgViewer/ViewerBase>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace VelOsgDBBrx {

/// The services of one graphics context for as long as this object lives: registers it with `GlobalObject`,
/// pages about a point a pixel for every camera (`PixelSpacingLod`), and unregisters it at the end. It must
/// end before the viewer that owns the context. For hosts whose contexts follow scopes; `GlobalObject` is for
/// the others.
///
/// Threads: those of `GlobalObject`, except `settle`.
class VEL_OSGDB_BRX_EXPORT ContextServices
{
public:
    /// Starts the services of `context`, which is not null and is held; at most `budget` points are drawn, or
    /// the library's number where there is none.
    explicit ContextServices(osg::GraphicsContext* context, std::optional<uint64_t> budget = std::nullopt);
    ~ContextServices();
    ContextServices(const ContextServices&) = delete;
    ContextServices& operator=(const ContextServices&) = delete;

    /// At most so many points are drawn from now on.
    void setBudget(uint64_t points) const;

    /// Points that the cameras want to draw, whether the budget admits them or not, as of the last pass.
    uint64_t wantedPoints() const;

    /// What still cameras show is final: see `IPointLoadManager::isSettled`.
    bool isSettled() const;

    /// Draws frames until `isSettled` for cameras that stand still; false when `timeout` comes first, the
    /// viewer is done, or `*cancel` becomes true. On the thread of the viewer's frames, between frames.
    bool settle(osgViewer::ViewerBase& viewer, std::chrono::duration<double> timeout,
                const std::atomic<bool>* cancel = nullptr) const;

private:
    const osg::ref_ptr<osg::GraphicsContext> _context;
};

} // namespace VelOsgDBBrx
