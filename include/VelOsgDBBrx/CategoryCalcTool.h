#pragma once

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PixelBufferTool.h>
#include <VelThreads/Mutex.h>

#include <osg/Referenced>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class CloudPlaces;
class ClassUndoStack;

namespace VelOsgUtils {
template <class Item>
class QueueWorker;
}

namespace VelOsgDBBrx {

class IPointCloud;

/// The one worker that changes the classes of points. Clients queue requests and do not wait; who needs the
/// outcome gives the request a `CategoryReport`.
///
/// Where an edit lives: it reaches every point of its selection, of loaded cells and of others. The new
/// classes are kept in memory, a byte for each point of the cells that are touched, and every cell that is
/// read later shows them, in every context. The store's file stays as it is until `writeToStores`; a program
/// that ends before loses the edits, so ask `hasUnwritten` when closing.
///
/// Two things are independent of each other:
/// - undo, reset, save and `getAllModify` are about the classes since the last `save`, which makes the
///   classes of that moment the ones to go back to and drops the undo records; it writes no file;
/// - `writeToStores` and `hasUnwritten` are about the difference from the stores' files.
///   An edit can be undone after it was written; the store must then be written
///   again.
///
/// Only the class byte of a point changes; synthetic, key-point, withheld and overlap flags stay.
///
/// Threads: any thread may call any operation but `run`. Requests are handled one at a time in the order of
/// the queue. An edit keeps level-of-detail passes away from its store while it runs.
class VEL_OSGDB_BRX_EXPORT CategoryCalcTool : public osg::Referenced
{
public:
    using Modify = std::map<std::string, std::vector<std::pair<int, char>>>;
    using Modify64 = std::map<std::string, std::vector<std::pair<int64_t, uint8_t>>>;

    static CategoryCalcTool* getInstance();

    CategoryCalcTool(const CategoryCalcTool&) = delete;
    CategoryCalcTool& operator=(const CategoryCalcTool&) = delete;

    /// Makes a point cloud known under a uid, in place of the one known before; it is observed, not held. One
    /// point cloud should have one uid. Null is ignored.
    void registerCloud(const std::string& uid, IPointCloud* cloud);
    void registerCloud(const std::string& uid, OctreeInfo* octree);
    void unRegisterCloud(const std::string& uid);

    /// Queues a request, held from then on. Null is ignored. The clouds that it means, also those under a
    /// group or of a view, are looked up now, and are edited where they stand in the scene at this moment,
    /// drawn there or not. Any thread may call it while nobody adds, moves or removes the nodes above the
    /// clouds: the thread that draws, between frames or in the event and update traversals, always may.
    void push(Category* c);

    void pop();   ///< queues an undo of the newest edit
    void reset(); ///< queues a reset
    void save();  ///< queues a save

    /// Returns when every request pushed before has been handled or abandoned. Not from the worker.
    void waitUntilHandled();

    /// Why requests that had no report were refused, oldest first; forgets them. The newest 100 are kept.
    std::vector<VelBrx::Status> takeRefusals();

    /// The points whose class differs from the one at the last save, by cloud: index in the point file, and
    /// class code (cast to unsigned char: codes above 127 are negative). Clouds without such points are not
    /// listed; one that is not registered is named by the path of its store, or by the edit's uid where it
    /// was the edit's own target. Of a uid that was given to another file meanwhile, points of that file
    /// alone are listed. Points whose index does not fit an int are left out; `getAllModify64` has them.
    /// Edits that were queued but not handled are not in it.
    Modify getAllModify();
    Modify64 getAllModify64();

    /// Writes every class that differs from its store into the store's point records, single bytes in place,
    /// and syncs the files. Requests pushed before are handled first. After it every reader of the files sees
    /// the classes. The stores are valid LAS files at every moment; a kill leaves each point with the class
    /// before or after. A store that cannot be written is left as it is, its edits stay unwritten, and the
    /// failure names it, the first of several; the other stores are written. So it is with a disk without
    /// room: make some and write again. A point that somebody else gave another class since it was edited
    /// here is left as it is; the failure says how many there are, and the next call writes them too. Undo
    /// records and `getAllModify` stay as they are.
    VelBrx::Status writeToStores();

    /// Whether a store differs from the current classes: handled edits that `writeToStores` would write.
    bool hasUnwritten();

    /// Number of points that `writeToStores` would write, by the path of their store.
    std::map<std::string, uint64_t> countUnwritten();

    /// The source of polygon masks for edits that start from now on; held. Null: a `PolygonMaskTool`.
    void setPixelBufferTool(PixelBufferTool* tool);
    PixelBufferTool* getPixelBufferTool();

    /// The worker loop; only the tool's own thread calls it.
    void run();

    /// Ends the worker: finishes the request in hand, abandons the queued ones, and returns when the thread
    /// has ended. Edits made stay. Happens by itself at process exit; further requests are abandoned.
    void shutdown();

private:
    CategoryCalcTool();
    ~CategoryCalcTool() override;

    /// A request, and the clouds that it means by where they are in a scene.
    struct Queued
    {
        osg::ref_ptr<Category> request;
        std::vector<osg::observer_ptr<OctreeInfo>> inScene;
        std::shared_ptr<const CloudPlaces> places; ///< of its clouds, when it was pushed
    };

    void push(int32_t kind);
    bool isRegistered(const std::string& uid);
    osg::ref_ptr<OctreeInfo> findCloud(const std::string& uid);
    void handle(const Queued& next);
    void noteRefusal(const VelBrx::Status& status);
    VelBrx::Status edit(const Queued& next, CategoryReport::Counts& counts);
    VelBrx::Status undo(CategoryReport::Counts& counts);
    VelBrx::Status reset(CategoryReport::Counts& counts);
    static void abandon(Category& request);

    std::unique_ptr<ClassUndoStack> _history; ///< changed by the worker; has its own lock
    VelThreads::Mutex _mutex;
    std::deque<VelBrx::Status> _refusals VEL_GUARDED_BY(_mutex); ///< of requests without a report
    osg::ref_ptr<PixelBufferTool> _pixelBufferTool VEL_GUARDED_BY(_mutex);
    std::map<std::string, osg::observer_ptr<OctreeInfo>> _clouds VEL_GUARDED_BY(_mutex); ///< by uid
    std::unique_ptr<VelOsgUtils::QueueWorker<Queued>> _worker;
};

} // namespace VelOsgDBBrx
