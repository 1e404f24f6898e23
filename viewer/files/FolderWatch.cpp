#include "viewer/files/FolderWatch.h"

#include <VelBrx/FolderFiles.h>

#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using VelBrx::FileIdentity;

namespace {

constexpr auto kPause = 3s; ///< between looks

/// Which file a path leads to now; that of none where there is none.
FileIdentity identityOf(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, 0};
}

fs::file_time_type timeOf(const std::string& folder)
{
    std::error_code error;
    const fs::file_time_type time = fs::last_write_time(folder, error);
    return error ? fs::file_time_type() : time;
}

std::vector<std::string> storesIn(const std::string& folder)
{
    std::vector<std::string> paths;
    if (!VelBrx::findFiles(folder, {".brx"}, paths)) paths.clear();
    return paths;
}

} // namespace

FolderWatch::Folder FolderWatch::read(const std::string& path)
{
    Folder folder;
    // The times first: what comes meanwhile changes them, and is found by the next look.
    folder.times[path] = timeOf(path);
    for (const std::string& store : storesIn(path))
        if (const std::string parent = fs::path(store).parent_path().string(); !folder.times.count(parent))
            folder.times[parent] = timeOf(parent);
    for (const std::string& store : storesIn(path))
        folder.stores[store] = identityOf(store);
    return folder;
}

bool FolderWatch::isAsBefore(const Folder& folder)
{
    for (const auto& [path, time] : folder.times)
        if (timeOf(path) != time) return false;
    return true;
}

std::vector<std::string> FolderWatch::add(const std::string& folder)
{
    Folder read = FolderWatch::read(folder);
    std::vector<std::string> paths;
    for (const auto& [path, identity] : read.stores)
        paths.push_back(path);
    const VelThreads::Lock lock(_mutex);
    _folders[folder] = std::move(read);
    return paths;
}

FolderWatch::Stamp FolderWatch::stampOf(const std::string& path)
{
    Stamp stamp;
    std::error_code error;
    const uint64_t bytes = fs::file_size(path, error);
    if (!error) stamp.modified = fs::last_write_time(path, error);
    if (!error) stamp.bytes = bytes;
    return error ? Stamp() : stamp;
}

bool FolderWatch::tryAgain(const std::string& path, const Stamp& stamp)
{
    const VelThreads::Lock lock(_mutex);
    const bool isWatched = std::any_of(_folders.begin(), _folders.end(), [&](const auto& folder) {
        return folder.second.stores.count(path) > 0;
    });
    if (isWatched) _unfinished[path] = {stamp, stamp};
    return isWatched;
}

std::vector<std::string> FolderWatch::changed()
{
    const Clock::time_point now = Clock::now();
    if (now - _lastLook >= kPause && _jobs.isIdle()) {
        _lastLook = now;
        _jobs.push("folders", [this](JobQueue::Control& control) { look(control.cancelled()); });
    }
    const VelThreads::Lock lock(_mutex);
    return std::exchange(_changed, {});
}

void FolderWatch::lookAtUnfinished()
{
    std::map<std::string, Unfinished> known;
    {
        const VelThreads::Lock lock(_mutex);
        known = _unfinished;
    }
    for (const auto& [path, before] : known) {
        const Stamp now = stampOf(path);
        const bool isGone = now == Stamp();
        const bool isWritten = now == before.last && !(now == before.tried);
        const VelThreads::Lock lock(_mutex);
        if (isWritten) _changed.push_back(path);
        if (isWritten || isGone)
            _unfinished.erase(path);
        else
            _unfinished[path].last = now;
    }
}

void FolderWatch::look(const std::atomic<bool>& cancelled)
{
    lookAtUnfinished();
    std::map<std::string, Folder> folders;
    {
        const VelThreads::Lock lock(_mutex);
        folders = _folders;
    }
    for (const auto& [path, before] : folders) {
        if (cancelled) return;
        if (isAsBefore(before)) continue;
        Folder now = read(path);
        const VelThreads::Lock lock(_mutex);
        for (const auto& [store, identity] : now.stores) {
            const auto known = before.stores.find(store);
            if (known == before.stores.end() || known->second != identity) _changed.push_back(store);
        }
        _folders[path] = std::move(now);
    }
}
