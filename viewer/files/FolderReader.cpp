#include "viewer/files/FolderReader.h"

#include <algorithm>
#include <filesystem>
#include <tuple>
#include <utility>

namespace fs = std::filesystem;

namespace {

FolderReader::Listing list(const std::string& folder, const std::atomic<bool>& cancelled)
{
    FolderReader::Listing listing;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end && !cancelled;
         entry.increment(error)) {
        std::error_code ignored;
        const std::string name = entry->path().filename().string();
        if (name.empty() || name[0] == '.') continue;
        const bool isFolder = entry->is_directory(ignored);
        const uint64_t size = isFolder ? 0 : entry->file_size(ignored);
        listing.entries.push_back({name, isFolder, ignored ? 0 : size});
    }
    if (error) listing.problem = folder + ": " + error.message();
    std::sort(listing.entries.begin(), listing.entries.end(), [](const auto& a, const auto& b) {
        return std::tie(b.isFolder, a.name) < std::tie(a.isFolder, b.name);
    });
    return listing;
}

} // namespace

void FolderReader::read(const std::string& folder)
{
    const VelThreads::Lock lock(_mutex);
    _shown = Listing();
    _jobs.push(folder, [this, folder, wanted = ++_wanted](JobQueue::Control& control) {
        Listing listing = list(folder, control.cancelled());
        const VelThreads::Lock done(_mutex);
        if (wanted != _wanted) return;
        _read = std::move(listing);
        _isRead = wanted;
    });
}

bool FolderReader::isRead() const
{
    const VelThreads::Lock lock(_mutex);
    return _isRead == _wanted;
}

void FolderReader::update()
{
    const VelThreads::Lock lock(_mutex);
    if (_isRead != _wanted || _taken == _wanted) return;
    _shown = std::move(_read);
    _taken = _wanted;
}
