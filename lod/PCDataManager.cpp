#include <VelOsgDBBrx/PCDataManager.h>

#include <VelOsgDBBrx/CellData.h>
#include <VelOsgDBBrx/LasReaderWriter.h>
#include <VelOsgUtils/ThreadCount.h>

#include <atomic>
#include <chrono>

#include <malloc.h>

namespace VelOsgDBBrx {

namespace {

constexpr std::chrono::milliseconds kEvictionPeriod{60};

constexpr int kRestPeriods = 17; ///< a second without evictions

std::atomic<size_t> freedNodes{0}; ///< by any thread

/// Gives the system the memory of freed cells at rest. The C library would keep what lies between blocks that
/// are in use, so that a process would stay as large as it ever was. It belongs to one thread.
class MemoryReturn
{
public:
    /// To be called once a period.
    void afterEviction()
    {
        const size_t freed = freedNodes;
        _restPeriods = freed == _freed ? _restPeriods + 1 : 0;
        _freed = freed;
        if (_restPeriods < kRestPeriods || _freed == _freedBefore) return;
        _freedBefore = _freed;
#ifdef __GLIBC__
        malloc_trim(0);
#endif
    }

private:
    size_t _freed = 0;
    size_t _freedBefore = 0; ///< when memory was last given back
    int _restPeriods = 0;
};

/// The reference asked about is the only one. Counting up and down again is atomic; reading the count is not.
bool isOnlyReference(const osg::Referenced& object)
{
    const bool only = object.ref() == 2;
    object.unref_nodelete();
    return only;
}

} // namespace

PCDataManager* PCDataManager::getInstance()
{
    static PCDataManager manager;
    return &manager;
}

PCDataManager::PCDataManager() : _evictionThread([this] { run(); }) {}

PCDataManager::~PCDataManager()
{
    {
        const VelThreads::Lock lock(_stopMutex);
        _stopping = true;
    }
    _stopSignal.notifyAll();
    _evictionThread.join();
}

osg::Node* PCDataManager::getNodeOrCreate(osg::ref_ptr<CellData> cell)
{
    return acquireNodeOrCreate(std::move(cell)).get();
}

osg::ref_ptr<osg::Node> PCDataManager::acquireNodeOrCreate(osg::ref_ptr<CellData> cell)
{
    if (!cell) return nullptr;
    if (osg::ref_ptr<osg::Node> cached = acquireNode(cell->identifier)) return cached;

    // Read outside the lock. Another thread may store the same cell meanwhile; the first one wins. Its
    // records may be edited meanwhile; the edit finds the cell in the cache, or the cell is read again.
    for (;;) {
        const uint64_t editsBefore = _recordEdits;
        osg::ref_ptr<osg::Node> read = LasReaderWriter::read(cell);
        if (!read) return nullptr;
        const VelThreads::Lock lock(_lock);
        const auto stored = _nodes.find(cell->identifier);
        if (stored != _nodes.end()) return stored->second;
        if (_recordEdits == editsBefore) return _nodes.emplace(cell->identifier, read).first->second;
    }
}

void PCDataManager::discardReadsInProgress()
{
    const VelThreads::Lock lock(_lock);
    ++_recordEdits;
}

osg::Node* PCDataManager::getNode(std::string key)
{
    return acquireNode(key).get();
}

osg::ref_ptr<osg::Node> PCDataManager::acquireNode(const std::string& key)
{
    const VelThreads::Lock lock(_lock);
    const auto found = _nodes.find(key);
    return found == _nodes.end() ? nullptr : found->second;
}

void PCDataManager::remove(std::string key)
{
    osg::ref_ptr<osg::Node> removed; // dropped outside the lock
    const VelThreads::Lock lock(_lock);
    const auto found = _nodes.find(key);
    if (found == _nodes.end()) return;
    removed.swap(found->second);
    _nodes.erase(found);
}

void PCDataManager::registerNode(osg::Node* node, std::string key)
{
    if (!node) return;
    const osg::ref_ptr<osg::Node> held = node;
    const VelThreads::Lock lock(_lock);
    _nodes.emplace(std::move(key), held);
}

void PCDataManager::run()
{
    const VelOsgUtils::ThreadCount::Scope scope;
    MemoryReturn memory;
    while (waitForEviction()) {
        evict();
        memory.afterEviction();
    }
}

/// False when the thread shall end.
bool PCDataManager::waitForEviction()
{
    const auto due = std::chrono::steady_clock::now() + kEvictionPeriod;
    const VelThreads::Lock lock(_stopMutex);
    while (!_stopping && _stopSignal.waitUntil(_stopMutex, due)) {
    }
    return !_stopping;
}

/// References are only ever taken under the lock, so a count of one seen under it cannot grow. Freeing a cell
/// takes long and is left for after the lock.
void PCDataManager::evict()
{
    const VelThreads::Lock eviction(_evictionMutex);
    std::vector<osg::ref_ptr<osg::Node>> evicted; // freed after _lock, before _evictionMutex is released
    const VelThreads::Lock lock(_lock);
    for (auto entry = _nodes.begin(); entry != _nodes.end();) {
        if (isOnlyReference(*entry->second)) {
            evicted.push_back(std::move(entry->second));
            entry = _nodes.erase(entry);
            ++freedNodes;
        } else {
            ++entry;
        }
    }
}

} // namespace VelOsgDBBrx
