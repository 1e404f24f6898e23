#pragma once

#include "viewer/edit/SceneEditing.h"

#include <VelBrx/PointCounts.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// How many points of each class the stores on show have now, unsaved classes included, and how many they
/// hide. The files are read once, on a thread of its own, and after each operation what is not saved is
/// counted there. Until then the numbers are those of when the stores were built.
///
/// Operations tell how many points they hid and brought back in all stores together. So the files are read
/// again where one did not tell, or where stores came or went after operations on several.
///
/// Belongs to the viewer's thread.
class ClassCounts
{
public:
    using Counts = std::array<uint64_t, 256>;

    /// Both outlive it.
    ClassCounts(const Scene& scene, const SceneEditing& editing) : _scene(scene), _editing(editing) {}

    /// Follows the stores on show and what was edited. Call it before the numbers are asked for; where
    /// nothing changed it costs nothing.
    void update();

    const Counts& points() const { return _points; }

    /// The points that the file of a store hid when it was read: 0 of one that cannot be. Empty until it is
    /// tried, and for a store that is not on show.
    std::optional<uint64_t> hidden(const std::string& store) const;

    /// The points that all stores on show hide now; empty until all files were tried.
    std::optional<uint64_t> hidden() const;

    /// Of counting, 0 to 1; empty where the numbers are those of now.
    std::optional<double> progress() const;

    /// A line for people that names a file that cannot be counted, and so is as built; or empty.
    const std::string& problem() const { return _problem; }

private:
    /// What is known of a store.
    struct Store
    {
        Counts points{};               ///< that are shown
        std::optional<uint64_t> known; ///< the revision that `points` are of
        Counts inFile{};
        uint64_t hidden = 0;          ///< in the file
        bool isHiddenKnown = false;   ///< `hidden` is of `_hiddenBase`, or the file cannot be read
        std::optional<uint64_t> read; ///< the revision from which on `inFile` holds until a save
    };

    /// Counts on a thread; ends with this object.
    class Job
    {
    public:
        Job(const SceneEditing& editing, std::vector<std::string> files, uint64_t points);
        ~Job();

        bool isDone() const { return _isDone; }
        double progress() const;

        /// \name Of one that is done
        /// @{
        std::map<std::string, VelBrx::PointCounts> inFiles; ///< without those that cannot be read
        std::map<std::string, std::array<int64_t, 256>> unsaved;
        std::string problem;
        const uint64_t revision; ///< when it began, as are the operations
        const uint64_t hidingOperations;
        const std::vector<std::string> files; ///< that it reads
        /// @}

    private:
        void count(const SceneEditing& editing);

        const uint64_t _all; ///< points of the files
        std::atomic<uint64_t> _done{0};
        std::atomic<bool> _cancel{false};
        std::atomic<bool> _isDone{false};
        std::thread _thread; ///< uses the others
    };

    void followStores();
    void followHiding(bool haveStoresChanged);
    void take(const Job& job);
    void takeHidden(const Job& job);
    void begin();

    const Scene& _scene;
    const SceneEditing& _editing;
    Counts _points{};
    std::map<std::string, Store> _stores;
    std::optional<unsigned> _cloudsRevision; ///< of the scene, that `_stores` follow
    uint64_t _revision = 0;                  ///< of the editing, that `begin` has seen
    SceneEditing::HiddenChanges _hiddenBase; ///< when the stores hid what they are said to
    std::string _problem;
    std::unique_ptr<Job> _job;
};
