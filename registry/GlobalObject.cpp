#include <VelOsgDBBrx/GlobalObject.h>

#include "category/CpuCategoryOp.h"
#include "category/PointCategoryManager.h"
#include "loading/UnwrittenClasses.h"
#include "lod/PointLoadManager.h"
#include "lod/ServicesLookup.h"
#include "registry/PointCloudData.h"

#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/PointCloudLodOperation.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>
#include <VelOsgUtils/SpinLock.h>
#include <VelOsgUtils/ThreadCount.h>

#include <osgViewer/View>

#include <map>
#include <vector>

namespace VelOsgDBBrx {

namespace {

constexpr int kDefaultMouseDiluteNum = 3000000;

struct Registry
{
    VelOsgUtils::SpinLock lock;
    std::map<osg::ref_ptr<osg::GraphicsContext>, osg::ref_ptr<PointCloudData>> contexts VEL_GUARDED_BY(lock);

    osg::ref_ptr<PointCloudData> find(osg::GraphicsContext* gc)
    {
        const VelThreads::Lock guard(lock);
        const auto found = contexts.find(gc);
        return found == contexts.end() ? nullptr : found->second;
    }
};

/// Joins threads: never under the registry's lock, which operations of a host may wait for.
void shutDown(PointCloudData& data)
{
    data.loadManager->stop();
    data.categoryManager->stop();
}

/// Joins the threads of every context when the process exits, while the objects that they use are still
/// there.
struct ExitGuard
{
    explicit ExitGuard(Registry& theRegistry) : registry(theRegistry) {}
    ~ExitGuard()
    {
        std::vector<osg::ref_ptr<PointCloudData>> running;
        {
            const VelThreads::Lock guard(registry.lock);
            for (const auto& entry : registry.contexts)
                running.push_back(entry.second);
        }
        for (const osg::ref_ptr<PointCloudData>& data : running)
            shutDown(*data);
    }
    Registry& registry;
};

/// Never destroyed: graphics contexts must not die after their window system has been shut down.
Registry& registry()
{
    static Registry& theRegistry = []() -> Registry& {
        // What the threads use is made first, and so destroyed after they were joined.
        PCDataManager::getInstance();
        PCViewerManager::getInstance();
        UnwrittenClasses::instance();
        VelOsgUtils::ThreadCount::isProcessStopping();
        return *new Registry;
    }();
    static const ExitGuard guard(theRegistry);
    return theRegistry;
}

osg::ref_ptr<PointCloudData> createServices(osg::GraphicsContext* gc)
{
    const osg::ref_ptr<PointLoadManager> loadManager = new PointLoadManager;
    const osg::ref_ptr<PointCategoryManager> categoryManager = new PointCategoryManager;
    const osg::ref_ptr<VelIncrementalCompileOperation> incremental = new VelIncrementalCompileOperation;
    const osg::ref_ptr<VelOsgUtils::DecrementalCompileOperation> decremental =
        new VelOsgUtils::DecrementalCompileOperation;
    loadManager->setIncrementalCompileOperation(incremental);
    loadManager->setDecrementalCompileOperation(decremental);
    const osg::ref_ptr<VelOsgUtils::ScreenCaptureTool> capture = new VelOsgUtils::ScreenCaptureTool(gc);
    loadManager->setScreenCaptureTool(capture);
    loadManager->setLodOperation(new DynPointCloudLod(incremental, decremental));
    categoryManager->setOperation(new CpuCategoryOp(incremental));
    return new PointCloudData(loadManager, categoryManager,
                              new ContextOperation(incremental, decremental, capture));
}

/// Brings a registered context's services to the viewer where they are not there. The viewer is touched
/// outside the lock: cull threads wait for that. False when the context is not registered.
bool attachContext(osg::GraphicsContext* gc, osgViewer::ViewerBase& viewer)
{
    osg::ref_ptr<PointCloudData> data;
    bool attached = false;
    {
        const VelThreads::Lock guard(registry().lock);
        const auto found = registry().contexts.find(gc);
        if (found == registry().contexts.end()) return false;
        data = found->second;
        attached = data->viewer == &viewer;
        data->viewer = &viewer;
    }
    data->operation->provideCompileOperation(viewer);
    if (attached) return true;
    data->loadManager->setViewer(&viewer);
    data->operation->install(viewer, *gc);
    return true;
}

class RegistryLookup final : public ServicesLookup
{
public:
    bool attachView(osgViewer::View* view) const override { return GlobalObject::attachView(view); }
    osg::ref_ptr<IPointLoadManager> loads(osg::GraphicsContext* context) const override
    {
        return GlobalObject::acquirePLM(context);
    }
    osg::ref_ptr<IPointCategoryManager> categories(osg::GraphicsContext* context) const override
    {
        return GlobalObject::acquirePCM(context);
    }
};

} // namespace

IPointLoadManager* GlobalObject::registerGraphicsContext(osg::GraphicsContext* gc)
{
    static const RegistryLookup lookup;
    if (!gc) return nullptr;
    ServicesLookup::set(lookup);
    const VelThreads::Lock guard(registry().lock);
    osg::ref_ptr<PointCloudData>& data = registry().contexts[gc];
    if (!data) {
        data = createServices(gc);
        data->loadManager->start();
        data->categoryManager->start();
    }
    return data->loadManager;
}

void GlobalObject::unRegisterGraphicsContext(osg::GraphicsContext* gc)
{
    osg::ref_ptr<osg::GraphicsContext> context = gc; // what goes with the entry goes outside the lock
    osg::ref_ptr<PointCloudData> data;
    {
        const VelThreads::Lock guard(registry().lock);
        const auto found = registry().contexts.find(gc);
        if (found == registry().contexts.end()) return;
        data = found->second;
        registry().contexts.erase(found);
    }
    shutDown(*data);
    data->loadManager->releaseOctrees();
    data->operation->retire();
    PCDataManager::getInstance()->evict();
    PCViewerManager::getInstance()->requestRedraw(data->viewer.get()); // the services leave in a frame
}

bool GlobalObject::attachView(osgViewer::View* view)
{
    osgViewer::ViewerBase* viewer = view ? view->getViewerBase() : nullptr;
    if (!viewer) return false;
    bool registered = attachContext(view->getCamera()->getGraphicsContext(), *viewer);
    for (unsigned i = 0; i < view->getNumSlaves(); ++i)
        registered |= attachContext(view->getSlave(i)._camera->getGraphicsContext(), *viewer);
    return registered;
}

IPointLoadManager* GlobalObject::getPLM(osg::GraphicsContext* gc)
{
    return acquirePLM(gc).get();
}

IPointCategoryManager* GlobalObject::getPCM(osg::GraphicsContext* gc)
{
    return acquirePCM(gc).get();
}

osg::ref_ptr<IPointLoadManager> GlobalObject::acquirePLM(osg::GraphicsContext* gc)
{
    const osg::ref_ptr<PointCloudData> data = registry().find(gc);
    return data ? data->loadManager : nullptr;
}

osg::ref_ptr<IPointCategoryManager> GlobalObject::acquirePCM(osg::GraphicsContext* gc)
{
    const osg::ref_ptr<PointCloudData> data = registry().find(gc);
    return data ? data->categoryManager : nullptr;
}

VelIncrementalCompileOperation* GlobalObject::getIncrementalCompileOperation(osg::GraphicsContext* gc)
{
    const osg::ref_ptr<PointCloudData> data = registry().find(gc);
    return data ? data->loadManager->getIncrementalCompileOperation() : nullptr;
}

VelOsgUtils::DecrementalCompileOperation*
GlobalObject::getDecrementalCompileOperation(osg::GraphicsContext* gc)
{
    const osg::ref_ptr<PointCloudData> data = registry().find(gc);
    return data ? data->loadManager->getDecrementalCompileOperation() : nullptr;
}

void GlobalObject::setMaxNumOfPointCloud(osg::GraphicsContext* gc, unsigned int n)
{
    if (const osg::ref_ptr<PointCloudData> data = registry().find(gc))
        data->loadManager->setMaxNumOfPointCloud(n);
}

unsigned int GlobalObject::getMaxNumOfPointCloud(osg::GraphicsContext* gc)
{
    const osg::ref_ptr<PointCloudData> data = registry().find(gc);
    if (!data) return 0;
    const uint64_t& points = data->loadManager->getMaxNumOfPointCloud(); // the manager's thread may write it
    return static_cast<unsigned int>(__atomic_load_n(&points, __ATOMIC_RELAXED));
}

void GlobalObject::setMouseDiluteNum(osg::GraphicsContext* gc, unsigned int n)
{
    if (const osg::ref_ptr<PointCloudData> data = registry().find(gc))
        data->loadManager->setMouseDiluteNum(n);
}

int GlobalObject::getMouseDiluteNum(osg::GraphicsContext* gc)
{
    const osg::ref_ptr<PointCloudData> data = registry().find(gc);
    return data ? static_cast<int>(data->loadManager->getMouseDiluteNum()) : kDefaultMouseDiluteNum;
}

} // namespace VelOsgDBBrx
