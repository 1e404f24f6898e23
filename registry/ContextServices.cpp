#include <VelOsgDBBrx/ContextServices.h>

#include <VelOsgDBBrx/IPointLoadManager.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>

#include <thread>

namespace VelOsgDBBrx {

ContextServices::ContextServices(osg::GraphicsContext* context, std::optional<uint64_t> budget)
    : _context(context)
{
    IPointLoadManager* manager = GlobalObject::registerGraphicsContext(context);
    manager->setLodOperation(new PixelSpacingLod(*manager));
    if (budget) manager->setMaxNumOfPointCloud(*budget);
}

ContextServices::~ContextServices()
{
    GlobalObject::unRegisterGraphicsContext(_context);
}

void ContextServices::setBudget(uint64_t points) const
{
    IPointLoadManager* const manager = GlobalObject::getPLM(_context);
    if (manager->pointBudget() != points) manager->setMaxNumOfPointCloud(points);
}

uint64_t ContextServices::wantedPoints() const
{
    const osg::ref_ptr<osg::Operation> operation = GlobalObject::getPLM(_context)->getLodOperation();
    const auto* const pass = dynamic_cast<const PointCloudLodOperation*>(operation.get());
    return pass ? pass->wantedPoints() : 0;
}

bool ContextServices::isSettled() const
{
    return GlobalObject::getPLM(_context)->isSettled();
}

bool ContextServices::settle(osgViewer::ViewerBase& viewer, std::chrono::duration<double> timeout,
                             const std::atomic<bool>* cancel) const
{
    // The first frame registers the clouds, the second captures the camera of the first.
    constexpr int kFramesBeforeTheAnswerCounts = 3;
    const auto end = std::chrono::steady_clock::now() + timeout;
    for (int frame = 1; frame <= kFramesBeforeTheAnswerCounts || !isSettled(); ++frame) {
        if (viewer.done() || (cancel && *cancel)) return false;
        if (std::chrono::steady_clock::now() > end) return false;
        viewer.frame();
        // Cells are read on other threads: leave them the processor.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace VelOsgDBBrx
