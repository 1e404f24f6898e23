#include <VelOsgDBBrx/CategoryCalcTool.h>

#include "category/CompileFirst.h"
#include "category/EditRequest.h"
#include "category/StoredClasses.h"
#include "loading/OpenOctrees.h"
#include "osgutils/QueueWorker.h"

#include <VelOsgDBBrx/IPointCloud.h>
#include <VelOsgDBBrx/PCDataManager.h>
#include <VelOsgDBBrx/PCViewerManager.h>
#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <limits>

using VelBrx::Status;

namespace VelOsgDBBrx {

namespace {

/// Whether the octree, which has the uid of a modified cell now, is of that cell's file.
bool isOfFile(const OctreeInfo& octree, const EditedCell& cell)
{
    return octree.pointFile && octree.pointFile->identity() == cell.place->file->identity();
}

/// Calls `visit(index in the point file, class)` for every point of a cell that has been modified.
template <class Visit>
void forEachModified(const EditedCell& cell, Visit visit)
{
    size_t place = 0;
    for (const VelBrx::Segment& segment : cell.place->segments)
        for (int64_t i = 0; i < segment.count; ++i, ++place)
            if ((*cell.before)[place] != (*cell.after)[place]) visit(segment.first + i, (*cell.after)[place]);
}

void noteUndone(const ClassEditOutcome& outcome, CategoryReport::Counts& counts, Status& firstFailure)
{
    counts += outcome.counts;
    counts.storesNotJournalled += !outcome.status;
    if (firstFailure) firstFailure = outcome.status;
}

} // namespace

CategoryCalcTool* CategoryCalcTool::getInstance()
{
    static const osg::ref_ptr<CategoryCalcTool> tool = new CategoryCalcTool;
    return tool;
}

CategoryCalcTool::CategoryCalcTool()
    : _history(std::make_unique<ClassUndoStack>()),
      _worker(std::make_unique<VelOsgUtils::QueueWorker<Queued>>([this] { run(); }))
{
    // The worker uses these: constructed before this object, they are destroyed after it.
    findOpenOctree({});
    PCDataManager::getInstance();
    PCViewerManager::getInstance();
    UnwrittenClasses::instance();
    _worker->start();
}

CategoryCalcTool::~CategoryCalcTool()
{
    shutdown();
}

void CategoryCalcTool::registerCloud(const std::string& uid, IPointCloud* cloud)
{
    registerCloud(uid, cloud ? cloud->getOctree() : nullptr);
}

void CategoryCalcTool::registerCloud(const std::string& uid, OctreeInfo* octree)
{
    if (!octree) return;
    const VelThreads::Lock lock(_mutex);
    _clouds[uid] = octree;
}

void CategoryCalcTool::unRegisterCloud(const std::string& uid)
{
    const VelThreads::Lock lock(_mutex);
    _clouds.erase(uid);
}

bool CategoryCalcTool::isRegistered(const std::string& uid)
{
    const VelThreads::Lock lock(_mutex);
    return _clouds.count(uid) > 0;
}

/// The cloud that is registered under a uid and open; else null.
osg::ref_ptr<OctreeInfo> CategoryCalcTool::findCloud(const std::string& uid)
{
    const VelThreads::Lock lock(_mutex);
    const auto cloud = _clouds.find(uid);
    osg::ref_ptr<OctreeInfo> octree;
    if (cloud != _clouds.end()) cloud->second.lock(octree);
    return octree;
}

void CategoryCalcTool::push(Category* c)
{
    if (!c) return;
    const osg::ref_ptr<Category> held = c;
    std::vector<osg::observer_ptr<OctreeInfo>> inScene = cloudsInScene(*held, isRegistered(held->uid));
    const auto places = std::make_shared<CloudPlaces>();
    notePlaces(*held, inScene, findCloud(held->uid), *places);
    if (held->report) held->report->set(CategoryReport::WAITING);
    if (!_worker->push({held, std::move(inScene), places})) abandon(*held);
}

void CategoryCalcTool::push(int32_t kind)
{
    const osg::ref_ptr<Category> request = new Category;
    request->kind = kind;
    push(request);
}

void CategoryCalcTool::pop()
{
    push(Category::UNDO);
}

void CategoryCalcTool::reset()
{
    push(Category::RESET);
}

void CategoryCalcTool::save()
{
    push(Category::SAVE);
}

void CategoryCalcTool::waitUntilHandled()
{
    _worker->waitUntilHandled();
}

CategoryCalcTool::Modify CategoryCalcTool::getAllModify()
{
    Modify all;
    for (const auto& [uid, points] : getAllModify64())
        for (const auto& [index, code] : points)
            if (index <= std::numeric_limits<int>::max())
                all[uid].emplace_back(static_cast<int>(index), static_cast<char>(code));
    return all;
}

CategoryCalcTool::Modify64 CategoryCalcTool::getAllModify64()
{
    Modify64 all;
    for (const auto& [uid, cloud] : _history->modified()) {
        const osg::ref_ptr<OctreeInfo> octree = findCloud(uid);
        for (const auto& [identifier, cell] : cloud)
            if (!octree || isOfFile(*octree, cell))
                forEachModified(cell, [&, &name = uid](int64_t index, uint8_t code) {
                    all[name].emplace_back(index, code);
                });
    }
    return all;
}

Status CategoryCalcTool::writeToStores()
{
    waitUntilHandled();
    return writeUnwrittenClasses();
}

bool CategoryCalcTool::hasUnwritten()
{
    return !UnwrittenClasses::instance().isEmpty();
}

std::map<std::string, uint64_t> CategoryCalcTool::countUnwritten()
{
    return countUnwrittenClasses();
}

void CategoryCalcTool::setPixelBufferTool(PixelBufferTool* tool)
{
    osg::ref_ptr<PixelBufferTool> replaced = tool; // dropped outside the lock
    const VelThreads::Lock lock(_mutex);
    _pixelBufferTool.swap(replaced);
}

PixelBufferTool* CategoryCalcTool::getPixelBufferTool()
{
    const VelThreads::Lock lock(_mutex);
    return _pixelBufferTool;
}

void CategoryCalcTool::run()
{
    Queued next;
    while (_worker->take(next))
        handle(next);
}

std::vector<Status> CategoryCalcTool::takeRefusals()
{
    const VelThreads::Lock lock(_mutex);
    std::vector<Status> refusals(_refusals.begin(), _refusals.end());
    _refusals.clear();
    return refusals;
}

void CategoryCalcTool::noteRefusal(const Status& status)
{
    constexpr size_t kMostRefusals = 100;
    const VelThreads::Lock lock(_mutex);
    if (_refusals.size() == kMostRefusals) _refusals.pop_front();
    _refusals.push_back(status);
}

void CategoryCalcTool::handle(const Queued& next)
{
    Category& request = *next.request;
    Status status;
    CategoryReport::Counts counts;
    switch (request.kind) {
    case Category::POLYGON:
    case Category::MASK:
    case Category::POINTS:
        status = edit(next, counts);
        break;
    case Category::UNDO:
        status = undo(counts);
        break;
    case Category::RESET:
        status = reset(counts);
        break;
    case Category::SAVE:
        _history->save();
        break;
    default:
        status = Status::failure("requests of kind " + std::to_string(request.kind) + " are not known");
    }
    if (request.report)
        request.report->set(status ? CategoryReport::DONE : CategoryReport::REFUSED, status, counts);
    else if (!status)
        noteRefusal(status);
}

Status CategoryCalcTool::edit(const Queued& next, CategoryReport::Counts& counts)
{
    EditContext context;
    context.inScene = next.inScene;
    context.places = next.places;
    {
        const VelThreads::Lock lock(_mutex);
        context.clouds = _clouds;
        context.maskTool = _pixelBufferTool;
    }
    std::vector<CloudEdit> edits;
    const Status status = carryOut(*next.request, context, edits);
    for (const CloudEdit& cloud : edits) {
        counts += cloud.outcome.counts;
        if (!cloud.outcome.cells.empty()) PCViewerManager::getInstance()->requestRedraw(cloud.viewer);
    }
    _history->add(std::move(edits));
    return status;
}

Status CategoryCalcTool::undo(CategoryReport::Counts& counts)
{
    Status firstFailure;
    for (const CloudEdit& cloud : _history->undo()) {
        noteUndone(cloud.outcome, counts, firstFailure);
        const osg::ref_ptr<VelIncrementalCompileOperation> operation =
            PCViewerManager::getInstance()->acquireCompileOperation(cloud.viewer);
        if (operation) compileFirst(*operation, cloud.outcome.cells);
        PCViewerManager::getInstance()->requestRedraw(cloud.viewer);
    }
    return firstFailure;
}

Status CategoryCalcTool::reset(CategoryReport::Counts& counts)
{
    Status firstFailure;
    for (const CloudEdit& cloud : _history->reset())
        noteUndone(cloud.outcome, counts, firstFailure);
    PCViewerManager::getInstance()->requestRedraw();
    return firstFailure;
}

void CategoryCalcTool::shutdown()
{
    _worker->close([](const Queued& queued) { abandon(*queued.request); });
    _worker->stop();
}

void CategoryCalcTool::abandon(Category& request)
{
    if (request.report)
        request.report->set(CategoryReport::ABANDONED,
                            Status::failure("the classification tool was shut down before the request"));
}

} // namespace VelOsgDBBrx
