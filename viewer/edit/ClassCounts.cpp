#include "viewer/edit/ClassCounts.h"

#include <algorithm>
#include <utility>

namespace {

using Difference = std::array<int64_t, 256>;

/// `sign` is 1 or -1.
ClassCounts::Counts plus(ClassCounts::Counts counts, const Difference& difference, int64_t sign)
{
    for (size_t code = 0; code < counts.size(); ++code)
        counts[code] += static_cast<uint64_t>(sign * difference[code]);
    return counts;
}

} // namespace

ClassCounts::Job::Job(const SceneEditing& editing, std::vector<std::string> toRead, uint64_t points)
    : revision(editing.revision()), hidingOperations(editing.hiddenChanges().operations),
      files(std::move(toRead)), _all(points), _thread([this, &editing] { count(editing); })
{
}

ClassCounts::Job::~Job()
{
    _cancel = true;
    _thread.join();
}

double ClassCounts::Job::progress() const
{
    return _all == 0 ? 0 : std::min(1.0, static_cast<double>(_done) / static_cast<double>(_all));
}

void ClassCounts::Job::count(const SceneEditing& editing)
{
    for (const std::string& file : files) {
        VelBrx::PointCounts counts;
        const VelBrx::Status status = VelBrx::countClassesAndHidden(file, _cancel, counts, &_done);
        if (_cancel) return;
        if (status)
            inFiles[file] = counts;
        else
            problem = status.message();
    }
    unsaved = editing.unsavedDifference();
    _isDone = true;
}

void ClassCounts::update()
{
    const bool haveStoresChanged = _cloudsRevision != _scene.cloudsRevision();
    if (haveStoresChanged) followStores();
    followHiding(haveStoresChanged);
    const bool isJobDone = _job && _job->isDone();
    if (isJobDone) {
        take(*_job);
        _job.reset();
    }
    if (!haveStoresChanged && !isJobDone && _revision == _editing.revision()) return;
    _revision = _editing.revision();
    if (!_job) begin();
    _points = {};
    for (const auto& [path, store] : _stores)
        for (size_t code = 0; code < _points.size(); ++code)
            _points[code] += store.points[code];
}

std::optional<uint64_t> ClassCounts::hidden(const std::string& store) const
{
    const auto found = _stores.find(store);
    if (found == _stores.end() || !found->second.known) return std::nullopt;
    return found->second.hidden;
}

std::optional<uint64_t> ClassCounts::hidden() const
{
    int64_t points = _editing.hiddenChanges().points - _hiddenBase.points;
    for (const auto& [path, store] : _stores) {
        if (!store.isHiddenKnown) return std::nullopt;
        points += static_cast<int64_t>(store.hidden);
    }
    return static_cast<uint64_t>(std::max<int64_t>(points, 0));
}

std::optional<double> ClassCounts::progress() const
{
    if (!_job) return std::nullopt;
    return _job->progress();
}

void ClassCounts::followStores()
{
    _cloudsRevision = _scene.cloudsRevision();
    std::map<std::string, Store> shown;
    for (const Scene::Cloud& cloud : _scene.clouds()) {
        const std::string& path = cloud.octree().pointPath;
        Store& store = shown[path];
        const auto known = _stores.find(path);
        if (known != _stores.end())
            store = known->second;
        else
            store.points = store.inFile = cloud.statistics.pointsByClass;
    }
    _stores.swap(shown);
}

/// Nobody knows which of several stores an operation hid points of.
void ClassCounts::followHiding(bool haveStoresChanged)
{
    const SceneEditing::HiddenChanges& now = _editing.hiddenChanges();
    const bool isTold = now.untold == _hiddenBase.untold;
    if (isTold && (!haveStoresChanged || now.operations == _hiddenBase.operations)) return;
    for (auto& [path, store] : _stores)
        store.isHiddenKnown = false;
    _hiddenBase = now;
}

/// Of a job during which an operation ran the files alone are of use. A save moves points from what is not
/// saved to the file and changes no class, so the file need not be read again where the numbers right before
/// it are known.
void ClassCounts::take(const Job& job)
{
    const bool isStill = job.revision % 2 == 0 && job.revision == _editing.revision();
    const uint64_t saved = _editing.savedRevision();
    if (!job.problem.empty()) _problem = job.problem;
    takeHidden(job);
    for (auto& [path, store] : _stores) {
        if (const auto counted = job.inFiles.find(path); counted != job.inFiles.end()) {
            store.inFile = counted->second.byClass;
            store.read = job.revision;
        }
        if (!isStill) continue;
        // Also where the file cannot be read, which the next operation tries again.
        const std::optional<uint64_t> knownBefore = std::exchange(store.known, job.revision);
        if (!store.read) continue;
        const auto found = job.unsaved.find(path);
        const Difference unsaved = found == job.unsaved.end() ? Difference() : found->second;
        if (*store.read < saved && saved == job.revision && knownBefore == saved - 2) {
            store.inFile = plus(store.points, unsaved, -1);
            store.read = saved;
        }
        if (*store.read < saved)
            store.known.reset();
        else
            store.points = plus(store.inFile, unsaved, 1);
    }
}

/// Counts of a file whose points an operation hid meanwhile are of no use; nor are any where all is known.
void ClassCounts::takeHidden(const Job& job)
{
    const SceneEditing::HiddenChanges& now = _editing.hiddenChanges();
    if (hidden() || _editing.isBusy() || job.hidingOperations != now.operations) return;
    if (_hiddenBase.operations != now.operations)
        for (auto& [path, store] : _stores)
            store.isHiddenKnown = false;
    _hiddenBase = now;
    for (const std::string& path : job.files) {
        const auto store = _stores.find(path);
        if (store == _stores.end()) continue;
        const auto counted = job.inFiles.find(path);
        store->second.hidden = counted == job.inFiles.end() ? 0 : counted->second.hidden;
        store->second.isHiddenKnown = true;
    }
}

void ClassCounts::begin()
{
    const uint64_t revision = _editing.revision();
    const uint64_t saved = _editing.savedRevision();
    if (revision % 2 != 0) return;
    std::vector<std::string> files;
    uint64_t points = 0;
    bool isCurrent = true;
    for (auto& [path, store] : _stores) {
        isCurrent = isCurrent && store.isHiddenKnown && store.known == revision;
        const bool countsOn = saved == revision && revision >= 2 && store.known == saved - 2;
        if (store.isHiddenKnown && store.read && (*store.read >= saved || countsOn)) continue;
        files.push_back(path);
        for (const uint64_t count : store.points)
            points += count;
    }
    if (!isCurrent) _job = std::make_unique<Job>(_editing, std::move(files), points);
}
