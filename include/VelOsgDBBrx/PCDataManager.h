#pragma once

#include <VelOsgDBBrx/Export.h>
#include <VelOsgUtils/SpinLock.h>
#include <VelThreads/Mutex.h>

#include <osg/Node>
#include <osg/ref_ptr>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

class CellData;

namespace VelOsgDBBrx {

/// Process-wide cache of cell nodes by cell identifier, so that a cell wanted by several contexts is read
/// once and shared. A background thread frees, within 60 ms, nodes that only the cache still holds. Any
/// thread may call it.
class VEL_OSGDB_BRX_EXPORT PCDataManager
{
public:
    static PCDataManager* getInstance();

    PCDataManager(const PCDataManager&) = delete;
    PCDataManager& operator=(const PCDataManager&) = delete;

    /// The cell's cached node, or the cell read now; null for a null or empty cell. Only the cache holds a
    /// new node: it may be freed before the caller takes a reference. Prefer `acquireNodeOrCreate`.
    virtual osg::Node* getNodeOrCreate(osg::ref_ptr<CellData> cell);

    /// The cached node or null.
    virtual osg::Node* getNode(std::string key);

    virtual void remove(std::string key);

    /// Like `getNodeOrCreate` and `getNode`, with the reference taken under the cache's lock.
    osg::ref_ptr<osg::Node> acquireNodeOrCreate(osg::ref_ptr<CellData> cell);
    osg::ref_ptr<osg::Node> acquireNode(const std::string& key);

    /// Stores a node under a key that has none. A null node is ignored.
    void registerNode(osg::Node* node, std::string key);

    /// For those who have edited records of a store: cells that are being read at this moment, perhaps
    /// through another octree of the same store, are read again before they enter the cache. What is in the
    /// cache after this call is for the caller to bring up to date.
    void discardReadsInProgress();

    /// Frees every node that only the cache holds; when it returns, no other thread is freeing one either. A
    /// host need not call it. It precedes the closing of a context, which takes the graphics objects from
    /// nodes that must not die meanwhile.
    void evict();

    /// The eviction loop; only the cache's own thread calls it.
    void run();
    bool waitForEviction();

private:
    PCDataManager();
    virtual ~PCDataManager();

    VelOsgUtils::SpinLock _lock;
    std::map<std::string, osg::ref_ptr<osg::Node>> _nodes VEL_GUARDED_BY(_lock);

    std::atomic<uint64_t> _recordEdits{0}; ///< changed under _lock

    VelThreads::Mutex _evictionMutex VEL_ACQUIRED_BEFORE(_lock); ///< held while nodes are freed
    VelThreads::Mutex _stopMutex;
    VelThreads::Condition _stopSignal;
    bool _stopping VEL_GUARDED_BY(_stopMutex) = false;
    std::thread _evictionThread;
};

} // namespace VelOsgDBBrx
