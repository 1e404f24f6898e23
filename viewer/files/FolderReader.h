#pragma once

#include "viewer/files/JobQueue.h"

#include <cstdint>
#include <string>
#include <vector>

/// Lists a folder on a thread of its own: that of a network may take its time, or never answer.
///
/// Threads: one; the listing happens on another.
class FolderReader
{
public:
    struct Entry
    {
        std::string name;
        bool isFolder = false;
        uint64_t size = 0; ///< bytes
    };

    struct Listing
    {
        std::vector<Entry> entries; ///< folders first, then files, by name; none that begins with a dot
        std::string problem;        ///< why it cannot be read; empty where it was
    };

    /// Lists another folder from now on; what was read before is dropped.
    void read(const std::string& folder);

    /// The listing is there.
    bool isRead() const;

    /// Takes over what has been read since the last call.
    void update();

    /// As of the last `update`; empty until it is there.
    const Listing& listing() const { return _shown; }

private:
    Listing _shown;
    mutable VelThreads::Mutex _mutex;
    Listing _read VEL_GUARDED_BY(_mutex);
    uint64_t _wanted VEL_GUARDED_BY(_mutex) = 0; ///< counts the calls of `read`
    uint64_t _isRead VEL_GUARDED_BY(_mutex) = 0; ///< of these the one that `_read` is of
    uint64_t _taken = 0;                         ///< of these the one that `_shown` is of
    JobQueue _jobs;                              ///< uses the others
};
