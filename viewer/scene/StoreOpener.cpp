#include "viewer/scene/StoreOpener.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

using VelBrx::Status;
using VelThreads::Lock;

namespace {

/// Opening waits for disks, and at times for those of other machines.
constexpr unsigned kFewestThreads = 2;
constexpr unsigned kMostThreads = 8;

} // namespace

StoreOpener::~StoreOpener()
{
    {
        const Lock lock(_mutex);
        _ends = true;
        _changed.notifyAll();
    }
    for (std::thread& thread : _threads)
        thread.join();
}

void StoreOpener::want(const std::vector<std::string>& paths)
{
    {
        const Lock lock(_mutex);
        _wanted.clear();
        std::copy_if(paths.begin(), paths.end(), std::back_inserter(_wanted),
                     [this](const std::string& path)
                         VEL_REQUIRES(_mutex) { return _begun.count(path) == 0; });
        _changed.notifyAll();
    }
    if (paths.empty()) return;
    const unsigned threads = std::clamp(std::thread::hardware_concurrency(), kFewestThreads, kMostThreads);
    while (_threads.size() < threads)
        _threads.emplace_back([this] { run(); });
}

std::vector<StoreOpener::Result> StoreOpener::take(size_t most)
{
    std::vector<Result> taken;
    const Lock lock(_mutex);
    for (; !_ready.empty() && taken.size() < most; _ready.pop_front()) {
        _begun.erase(_ready.front().path);
        taken.push_back(std::move(_ready.front()));
    }
    return taken;
}

void StoreOpener::wait()
{
    const Lock lock(_mutex);
    while (_ready.empty() && !(_wanted.empty() && _begun.empty()))
        _changed.wait(_mutex);
}

bool StoreOpener::isIdle() const
{
    const Lock lock(_mutex);
    return _wanted.empty() && _begun.empty();
}

void StoreOpener::run()
{
    while (true) {
        Result result;
        {
            const Lock lock(_mutex);
            while (_wanted.empty() && !_ends)
                _changed.wait(_mutex);
            if (_ends) return;
            result.path = std::move(_wanted.front());
            _wanted.pop_front();
            _begun.insert(result.path);
        }
        result.status = openStore(result.path, "", result.store, result.note);
        const Lock lock(_mutex);
        _ready.push_back(std::move(result));
        _changed.notifyAll();
    }
}

Status openStores(const std::vector<std::string>& paths, const std::atomic<bool>* cancel,
                  std::vector<OpenedStore>& stores, std::vector<std::string>& notes)
{
    StoreOpener opener;
    std::map<std::string, OpenedStore> opened;
    for (opener.want(paths); !opener.isIdle();) {
        opener.wait();
        for (StoreOpener::Result& result : opener.take(paths.size())) {
            if (!result.status) return result.status;
            if (!result.note.empty()) notes.push_back(result.note);
            opened[result.path] = std::move(result.store);
        }
        if (cancel && *cancel) return Status::failure("interrupted while stores were opened");
    }
    for (auto& [path, store] : opened)
        stores.push_back(std::move(store));
    return {};
}
