#include "viewer/files/CloudFiles.h"

#include "terminal/Text.h"
#include "viewer/files/StoreExport.h"
#include "viewer/scene/InputFiles.h"

#include <VelBrx/PointRecord.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <map>
#include <utility>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using VelBrx::Status;

namespace {

constexpr auto kLongestUpdate = 20ms; ///< that a frame waits for clouds to come into the scene
constexpr size_t kMostRecent = 12;
const std::string kRecent = "files.recent";

void append(std::vector<std::string>& lines, const std::vector<std::string>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
}

std::string nameOf(const std::string& path)
{
    const fs::path whole(path); // a folder's may end in a slash
    return (whole.has_filename() ? whole : whole.parent_path()).filename().string();
}

std::string absolute(const std::string& path)
{
    std::error_code error;
    const fs::path whole = fs::absolute(path, error);
    return error ? path : whole.lexically_normal().string();
}

/// What happened to the file of a cloud while it was open; empty where it is as it was.
std::string problemOf(const Scene::Cloud& cloud)
{
    const OctreeInfo& octree = cloud.octree();
    std::error_code error;
    const uint64_t size = fs::file_size(cloud.store, error);
    if (error)
        return ": was removed or renamed while it is open (" + error.message() +
               "); what is edited from now on may be lost: export it under another name";
    if (!octree.pointFile->isStillNamed()) return ""; // was built anew
    const uint64_t needed = static_cast<uint64_t>(octree.pointDataStart) +
                            cloud.points * static_cast<uint64_t>(VelBrx::PointRecord::kPointSize);
    if (size < needed)
        return ": was cut to " + grouped(size) +
               " bytes while it is open, so points are missing; close it, "
               "and put a copy in its place or build it again";
    return "";
}

} // namespace

CloudFiles::CloudFiles(SceneEditing& editing, Scene& scene, Settings& settings)
    : _editing(editing), _scene(scene), _settings(settings)
{
}

void CloudFiles::open(const std::vector<std::string>& paths, const How& how)
{
    for (const std::string& path : paths)
        _opening.push(nameOf(path),
                      [=](JobQueue::Control& control) { openNow(absolute(path), how, control); });
}

void CloudFiles::openNow(const std::string& path, const How& how, JobQueue::Control& control)
{
    control.report({"opening"});
    std::vector<std::string> inputs = {path};
    News news;
    const auto tell = [&](const Status& status) {
        if (!status && !control.cancelled()) news.problems.push_back(status.message());
        return status.ok();
    };
    std::vector<std::string> opened;
    if (!tell(expandFolders(inputs))) inputs.clear();
    std::error_code unknown;
    if (!inputs.empty() && fs::is_directory(path, unknown)) inputs = _folders.add(path);
    std::vector<WaitingStore> waiting;
    if (!inputs.empty() && hasIndexFile(path)) {
        if (tell(readIndexedStores(path, waiting, news.notes, news.problems))) opened = {path};
        inputs.clear();
    }
    for (const std::string& input : inputs) {
        StorePlan plan;
        const FolderWatch::Stamp stamp = FolderWatch::stampOf(input);
        if (control.cancelled() || !tell(findStore(input, how.rebuild, how.place, plan))) continue;
        if (!plan.source.empty() && !tell(buildNow(plan, control, news))) continue;
        OpenedStore store;
        std::string note;
        if (!tell(openStore(plan.store, how.normals, store, note))) {
            if (_folders.tryAgain(plan.store, stamp))
                news.done.push_back(plan.store + ": is tried again when it is written to");
            continue;
        }
        if (!note.empty()) news.notes.push_back(note);
        if (const std::string warning = warnOfCache(input, plan.store); !warning.empty())
            news.notes.push_back(warning);
        opened = {path};
        const VelThreads::Lock lock(_mutex); // the first of a folder's is shown before the last is read
        _results.stores.push_back(std::move(store));
    }
    if (control.cancelled()) news.done.push_back(path + ": cancelled");
    const VelThreads::Lock lock(_mutex);
    std::move(waiting.begin(), waiting.end(), std::back_inserter(_results.waiting));
    append(_results.opened, opened);
    _results.ended.push_back(control.id());
    append(_results.news.problems, news.problems);
    append(_results.news.notes, news.notes);
    append(_results.news.done, news.done);
}

/// Something to look at comes first.
Status CloudFiles::buildNow(const StorePlan& plan, JobQueue::Control& control, News& news)
{
    control.report({"reading a preview"});
    std::optional<StorePreview> preview;
    const Status sampled = openPreview(plan, control.cancelled(), preview);
    if (preview) {
        const VelThreads::Lock lock(_mutex);
        _results.previews.push_back({std::move(*preview), plan.store, control.id()});
    }
    const auto progress = [&](const VelBrx::BuildProgress& state) { control.report(state); };
    const Status built = buildStore(plan, progress, control.cancelled(), news.done);
    if (built && !sampled) news.done.push_back(sampled.message() + ", so no preview was shown");
    return built;
}

void CloudFiles::exportCloud(const Scene::Cloud& cloud, const std::string& path, bool overwrite)
{
    _exporting.push(nameOf(path), [this, store = cloud.store, path, overwrite](JobQueue::Control& control) {
        exportNow(store, absolute(path), overwrite, control);
    });
}

void CloudFiles::exportNow(const std::string& store, const std::string& path, bool overwrite,
                           JobQueue::Control& control)
{
    std::vector<std::string> told;
    const Status status = exportStore(
        store, path, overwrite, [&](const VelBrx::BuildProgress& state) { control.report(state); },
        control.cancelled(), told);
    const VelThreads::Lock lock(_mutex);
    News& news = _results.news;
    if (control.cancelled() && !status)
        news.done.push_back(path + ": cancelled, nothing is written");
    else if (!status)
        news.problems.push_back(status.message());
    append(news.done, told);
}

/// The old stores of names that have new ones leave the scene. One with classes that are not saved stays, and
/// the new one is left out.
void CloudFiles::giveWay(std::vector<OpenedStore>& stores, News& news)
{
    std::set<std::string> paths;
    for (const OpenedStore& store : stores)
        paths.insert(store.path);
    if (paths.empty()) return;
    std::map<std::string, uint64_t> replaced;
    for (const Scene::Cloud& cloud : _scene.clouds())
        if (paths.count(cloud.store) > 0 && !cloud.octree().pointFile->isStillNamed())
            replaced[cloud.store] = cloud.id;
    if (replaced.empty()) return;
    const std::map<std::string, uint64_t> unsaved = _editing.unsavedPoints();
    const auto isHeld = [&](const OpenedStore& store) {
        const bool held = replaced.count(store.path) > 0 && unsaved.count(store.path) > 0;
        if (held)
            news.notes.push_back(store.path +
                                 ": was built anew; the old one is on show as long as its classes are not "
                                 "saved or dropped: do so, then close it and open it again");
        return held;
    };
    stores.erase(std::remove_if(stores.begin(), stores.end(), isHeld), stores.end());
    for (const OpenedStore& store : stores)
        if (const auto old = replaced.find(store.path);
            old != replaced.end() && _editing.removeCloud(old->second))
            news.done.push_back(store.path + ": was built anew, and is shown so");
}

bool CloudFiles::isShown(const std::string& store) const
{
    const std::vector<Scene::Cloud>& clouds = _scene.clouds();
    return std::any_of(clouds.begin(), clouds.end(),
                       [&](const Scene::Cloud& cloud) { return cloud.store == store; });
}

/// Not of a store that is on show and built anew.
void CloudFiles::showPreviews(std::vector<ReadyPreview>& ready, News& news)
{
    for (ReadyPreview& one : ready) {
        if (isShown(one.store)) continue;
        const uint64_t cloud = _scene.addPreview(std::move(one.preview.store), one.preview.surveyPoints);
        _previews.push_back({cloud, one.job, one.store});
        news.cloudsChanged = true;
    }
}

/// A preview goes at once where no store takes its place, else when the points of that are there.
void CloudFiles::endPreviews(const std::vector<uint64_t>& ended, News& news)
{
    for (const uint64_t job : ended)
        for (auto preview = _previews.begin(); preview != _previews.end();) {
            if (preview->job == job && !isShown(preview->store)) {
                _scene.remove(preview->cloud);
                preview = _previews.erase(preview);
                news.cloudsChanged = true;
                continue;
            }
            if (preview->job == job) preview->end = Clock::now();
            ++preview;
        }
}

bool CloudFiles::dropPreviews(bool isSettled)
{
    constexpr std::chrono::seconds kLongest(3); // a picture that moves all the time is never settled
    if (_editing.isBusy()) return false;
    const size_t before = _previews.size();
    for (auto preview = _previews.begin(); preview != _previews.end();) {
        if (!preview->end || (!isSettled && Clock::now() - *preview->end < kLongest)) {
            ++preview;
            continue;
        }
        _scene.remove(preview->cloud);
        preview = _previews.erase(preview);
    }
    return _previews.size() < before;
}

std::optional<JobQueue::State> CloudFiles::openingOf(uint64_t preview) const
{
    for (const Preview& one : _previews) {
        if (one.cloud != preview || one.end) continue;
        for (const JobQueue::State& job : openings())
            if (job.id == one.job) return job;
    }
    return std::nullopt;
}

CloudFiles::News CloudFiles::update()
{
    if (_editing.isBusy()) return {};
    open(_folders.changed());
    Results results;
    {
        const VelThreads::Lock lock(_mutex);
        results = std::exchange(_results, Results());
    }
    News& news = results.news;
    if (!results.waiting.empty()) {
        _scene.await(std::move(results.waiting), news.notes);
        news.cloudsChanged = _viewsChanged = true;
    }
    showPreviews(results.previews, news);
    giveWay(results.stores, news);
    show(std::move(results.stores), news);
    endPreviews(results.ended, news);
    takeOpened(news);
    for (const uint64_t cloud : std::exchange(_closing, {}))
        if (_editing.removeCloud(cloud)) news.cloudsChanged = true;
    if (!results.opened.empty()) remember(results.opened);
    return std::move(news);
}

void CloudFiles::show(std::vector<OpenedStore> stores, News& news)
{
    if (stores.empty()) return;
    _editing.addClouds(std::move(stores));
    append(news.notes, _editing.notes());
    news.cloudsChanged = true;
}

/// Those that waited, as many as a frame has the time for.
void CloudFiles::takeOpened(News& news)
{
    constexpr size_t kAtOnce = 16;
    const auto end = std::chrono::steady_clock::now() + kLongestUpdate;
    std::vector<std::string> failed;
    for (std::vector<StoreOpener::Result> results = _opener.take(kAtOnce); !results.empty();
         results = _opener.take(kAtOnce)) {
        std::vector<OpenedStore> stores;
        for (StoreOpener::Result& result : results) {
            if (_scene.waiting().count(result.path) == 0) continue; // came otherwise
            if (!result.note.empty()) news.notes.push_back(result.note);
            if (result.status) {
                stores.push_back(std::move(result.store));
            } else {
                news.problems.push_back(result.status.message());
                failed.push_back(result.path);
                _folders.tryAgain(result.path, {});
            }
        }
        show(std::move(stores), news);
        if (std::chrono::steady_clock::now() > end) break;
    }
    if (failed.empty()) return;
    _scene.giveUp(failed);
    news.cloudsChanged = true;
}

void CloudFiles::look(const std::vector<ViewVolume>& views)
{
    if (_scene.waiting().empty()) _opensAll = false;
    _viewsChanged = _viewsChanged || views != _views;
    if (!_viewsChanged || _scene.waiting().empty()) return;
    _views = views;
    _viewsChanged = false;
    _opener.want(_opensAll ? allStores(_scene.waiting(), views) : wantedStores(_scene.waiting(), views));
}

std::vector<std::string> CloudFiles::checkStores()
{
    constexpr size_t kAtOnce = 64;
    const std::vector<Scene::Cloud>& clouds = _scene.clouds();
    std::vector<std::string> lines;
    for (size_t i = 0; i < std::min(kAtOnce, clouds.size()); ++i) {
        const Scene::Cloud& cloud = clouds[_checked++ % clouds.size()];
        const std::string problem = problemOf(cloud);
        if (!problem.empty() && _damaged.insert(cloud.id).second) lines.push_back(cloud.store + problem);
    }
    return lines;
}

bool CloudFiles::isBusy() const
{
    if (!_closing.empty() || !_previews.empty() || isOpening() || !_exporting.isIdle()) return true;
    const VelThreads::Lock lock(_mutex);
    const News& news = _results.news;
    return !_results.previews.empty() || !_results.waiting.empty() || !_results.stores.empty() ||
           !_results.ended.empty() || !news.problems.empty() || !news.notes.empty() || !news.done.empty();
}

std::vector<std::string> CloudFiles::recent() const
{
    return _settings.get<std::vector<std::string>>(kRecent).value_or(std::vector<std::string>());
}

void CloudFiles::remember(const std::vector<std::string>& opened)
{
    std::vector<std::string> paths = recent();
    for (const std::string& path : opened) {
        paths.erase(std::remove(paths.begin(), paths.end(), path), paths.end());
        paths.insert(paths.begin(), path);
    }
    paths.resize(std::min(paths.size(), kMostRecent));
    _settings.set(kRecent, paths);
}
