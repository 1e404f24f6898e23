#pragma once

#include "viewer/scene/Scene.h"

#include <VelBrx/Status.h>
#include <VelThreads/Mutex.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// Opens stores on threads of its own, those first that are wanted most.
///
/// Threads: one; the opening happens on others.
class StoreOpener
{
public:
    /// What became of a store.
    struct Result
    {
        std::string path;
        VelBrx::Status status; ///< a failure names the file
        OpenedStore store;
        std::string note; ///< a line for people, or nothing
    };

    StoreOpener() = default;

    /// Waits for those that are being opened.
    ~StoreOpener();
    StoreOpener(const StoreOpener&) = delete;
    StoreOpener& operator=(const StoreOpener&) = delete;

    /// From now on these are wanted and no others, the first most; what is being opened, or was and is not
    /// taken yet, is not opened again.
    void want(const std::vector<std::string>& paths) VEL_EXCLUDES(_mutex);

    /// At most `most` of those that are ready, the first first.
    std::vector<Result> take(size_t most) VEL_EXCLUDES(_mutex);

    /// Waits until one is ready, or nothing is wanted.
    void wait() VEL_EXCLUDES(_mutex);

    /// Nothing is wanted, being opened, or ready.
    bool isIdle() const VEL_EXCLUDES(_mutex);

private:
    void run() VEL_EXCLUDES(_mutex);

    mutable VelThreads::Mutex _mutex;
    VelThreads::Condition _changed;
    std::deque<std::string> _wanted VEL_GUARDED_BY(_mutex);
    std::set<std::string> _begun VEL_GUARDED_BY(_mutex); ///< and not taken
    std::deque<Result> _ready VEL_GUARDED_BY(_mutex);
    bool _ends VEL_GUARDED_BY(_mutex) = false;
    std::vector<std::thread> _threads; ///< from the first that is wanted on; they use the others
};

/// Opens stores by several threads; they come in the order of their paths. The first failure ends it, as does
/// `*cancel`. `notes` gets what is to know.
VelBrx::Status openStores(const std::vector<std::string>& paths, const std::atomic<bool>* cancel,
                          std::vector<OpenedStore>& stores, std::vector<std::string>& notes);
