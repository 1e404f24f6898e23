#pragma once

#include "viewer/files/JobQueue.h"

#include <VelBrx/FileIdentity.h>
#include <VelThreads/Mutex.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

/// Looks every few seconds for stores that came into folders, or were built anew there, on a thread of its
/// own. A folder is listed again only when its time of change, or that of a folder in it that has stores, is
/// another one. What is written into a file changes neither: of stores that could not be opened the files are
/// looked at.
///
/// Threads: one, but `add` and `tryAgain` any.
class FolderWatch
{
public:
    /// Watches a folder from now on; returns its stores, in the order of their paths. One that cannot be read
    /// has none.
    std::vector<std::string> add(const std::string& folder) VEL_EXCLUDES(_mutex);

    /// A file as it was at one moment: what is written into it gives it another size or time.
    struct Stamp
    {
        uint64_t bytes = 0;
        std::filesystem::file_time_type modified;

        bool operator==(const Stamp& other) const
        {
            return bytes == other.bytes && modified == other.modified;
        }
    };

    /// That of nothing where there is no file.
    static Stamp stampOf(const std::string& path);

    /// A store could not be opened that had this stamp before it was tried. `changed` tells it again when it
    /// has been written to, as by a copy that takes its time, and has rested from one look to the next. False
    /// where it is in no folder that is watched.
    bool tryAgain(const std::string& path, const Stamp& stamp) VEL_EXCLUDES(_mutex);

    /// The paths of stores that are new, or another file than before, since they were told last. Begins to
    /// look where it is time to, and never waits. Call it often.
    std::vector<std::string> changed() VEL_EXCLUDES(_mutex);

private:
    using Clock = std::chrono::steady_clock;

    struct Folder
    {
        std::map<std::string, std::filesystem::file_time_type> times; ///< of the folders, by path
        std::map<std::string, VelBrx::FileIdentity> stores;           ///< by path
    };

    /// A store that could not be opened.
    struct Unfinished
    {
        Stamp tried; ///< as it was then
        Stamp last;  ///< as the last look saw it
    };

    static Folder read(const std::string& path);
    static bool isAsBefore(const Folder& folder);
    void lookAtUnfinished() VEL_EXCLUDES(_mutex);
    void look(const std::atomic<bool>& cancelled) VEL_EXCLUDES(_mutex);

    VelThreads::Mutex _mutex;
    std::map<std::string, Folder> _folders VEL_GUARDED_BY(_mutex);        ///< by path
    std::map<std::string, Unfinished> _unfinished VEL_GUARDED_BY(_mutex); ///< by path
    std::vector<std::string> _changed VEL_GUARDED_BY(_mutex);
    Clock::time_point _lastLook = Clock::now();
    JobQueue _jobs; ///< uses the others
};
