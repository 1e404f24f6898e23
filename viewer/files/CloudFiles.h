#pragma once

#include "viewer/edit/SceneEditing.h"
#include "viewer/files/FolderWatch.h"
#include "viewer/files/JobQueue.h"
#include "viewer/scene/StoreCache.h"
#include "viewer/scene/StoreOpener.h"
#include "viewer/scene/WaitingStore.h"
#include "viewer/settings/Settings.h"

#include <VelThreads/Mutex.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The files of a window: opens stores, builds those of LAS and LAZ files, and exports, all on threads of its
/// own. What is ready comes into the scene by `update`.
///
/// Threads: the viewer's.
class CloudFiles
{
public:
    /// How files are opened.
    struct How
    {
        std::string normals;  ///< companion file of the store; empty: the one beside it
        std::string place;    ///< where the store of a LAS or LAZ file is; empty: where `findStore` has it
        bool rebuild = false; ///< a store that is older than its LAS or LAZ file
    };

    /// All outlive it. Recent files are kept in `settings`.
    CloudFiles(SceneEditing& editing, Scene& scene, Settings& settings);

    /// Cancels what is not done.
    ~CloudFiles() = default;
    CloudFiles(const CloudFiles&) = delete;
    CloudFiles& operator=(const CloudFiles&) = delete;

    /// Opens stores, the stores of folders, LAS and LAZ files, one after the other. Stores that come into a
    /// folder later are opened too; one that is built anew there takes the place of the one on show. The
    /// stores of a folder with an index file wait in the scene until a view shows them.
    void open(const std::vector<std::string>& paths) { open(paths, {}); }
    void open(const std::vector<std::string>& paths, const How& how);

    /// What the pictures show from now on: what waits there is opened, the nearest first. Cheap where nothing
    /// changed. Call it often.
    void look(const std::vector<ViewVolume>& views);

    /// Opens what waits, wherever it is.
    void openAll() { _opensAll = _viewsChanged = true; }

    /// Takes a cloud out of the scene when the running edit has ended; its journal keeps what is not saved.
    void close(uint64_t cloud) { _closing.push_back(cloud); }

    /// Writes the points of a cloud as its store has them to a LAS, LAZ or COPC file, by the name's ending. A
    /// file that exists stays unless `overwrite` is set.
    void exportCloud(const Scene::Cloud& cloud, const std::string& path, bool overwrite);

    /// What came of it since the last call: lines for people. What cannot be opened or written is named.
    struct News
    {
        bool cloudsChanged = false;
        std::vector<std::string> problems;
        std::vector<std::string> notes; ///< that hold for as long as the cloud is edited
        std::vector<std::string> done;  ///< such as the file that was written
    };

    /// Brings clouds that are ready into the scene and takes closed ones out, unless an edit is running. Once
    /// a frame, between frames.
    News update();

    /// Takes previews away whose stores are on show; whether there were some. `isSettled`: the points of the
    /// picture are all there.
    bool dropPreviews(bool isSettled);

    /// The opening that a preview of the scene belongs to; empty where it has ended.
    std::optional<JobQueue::State> openingOf(uint64_t preview) const;

    /// Looks after the files of the clouds on show, some at each call. Lines for people: which of them were
    /// removed or cut since they were opened, each once.
    std::vector<std::string> checkStores();

    /// Whether `update` may have something to do, or bars move: draw frames.
    bool isBusy() const;

    /// Whether clouds are still to come, but for what waits for a view.
    bool isOpening() const { return !_opening.isIdle() || !_opener.isIdle(); }

    /// What is opened, built and exported now, and what waits.
    std::vector<JobQueue::State> openings() const { return _opening.states(); }
    std::vector<JobQueue::State> exports() const { return _exporting.states(); }
    void cancelOpening(uint64_t job) { _opening.cancel(job); }
    void cancelExport(uint64_t job) { _exporting.cancel(job); }

    /// Paths, the last one opened first.
    std::vector<std::string> recent() const;

private:
    using Clock = std::chrono::steady_clock;

    /// What is shown of a survey until its store is.
    struct Preview
    {
        uint64_t cloud; ///< of the scene
        uint64_t job;
        std::string store;                                   ///< that is being built
        std::optional<Clock::time_point> end = std::nullopt; ///< when its store came
    };

    /// A preview that is ready.
    struct ReadyPreview
    {
        StorePreview preview;
        std::string store; ///< that is being built
        uint64_t job;
    };

    /// What the threads have done.
    struct Results
    {
        std::vector<ReadyPreview> previews;
        std::vector<uint64_t> ended; ///< jobs
        std::vector<OpenedStore> stores;
        std::vector<WaitingStore> waiting;
        std::vector<std::string> opened; ///< the files that people named
        News news;
    };

    void takeOpened(News& news);
    void show(std::vector<OpenedStore> stores, News& news);
    void openNow(const std::string& path, const How& how, JobQueue::Control& control) VEL_EXCLUDES(_mutex);
    VelBrx::Status buildNow(const StorePlan& plan, JobQueue::Control& control, News& news)
        VEL_EXCLUDES(_mutex);
    void exportNow(const std::string& store, const std::string& path, bool overwrite,
                   JobQueue::Control& control) VEL_EXCLUDES(_mutex);
    void remember(const std::vector<std::string>& opened);
    void giveWay(std::vector<OpenedStore>& stores, News& news);
    void showPreviews(std::vector<ReadyPreview>& ready, News& news);
    void endPreviews(const std::vector<uint64_t>& ended, News& news);
    bool isShown(const std::string& store) const;

    SceneEditing& _editing;
    Scene& _scene;
    Settings& _settings;
    std::vector<uint64_t> _closing;
    std::vector<Preview> _previews;
    size_t _checked = 0;         ///< the place of the cloud whose file comes next
    std::set<uint64_t> _damaged; ///< clouds whose file is not what it was
    std::vector<ViewVolume> _views;
    bool _viewsChanged = false; ///< or what waits, since the opener was told what is wanted
    bool _opensAll = false;     ///< what waits, in a view or not
    mutable VelThreads::Mutex _mutex;
    Results _results VEL_GUARDED_BY(_mutex);
    FolderWatch _folders;
    StoreOpener _opener;
    JobQueue _opening; ///< uses the others, as does the next
    JobQueue _exporting;
};
