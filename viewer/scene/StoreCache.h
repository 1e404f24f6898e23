#pragma once

#include "viewer/scene/Scene.h"

#include <VelBrx/BuildProgress.h>
#include <VelBrx/Status.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// The store to show for a file that the user named.
struct StorePlan
{
    std::string store;
    std::string source = {}; ///< the LAS or LAZ file that it must be built of first; empty: it is there
    bool replaces = false;   ///< a store of the name is there and is built anew, with its edits
};

/// Finds it. Any thread may call this and the others below.
///
/// A store is itself. The store of a LAS or LAZ file `survey.las` is `survey.las.brx` beside it, or, where
/// that folder cannot be written, in the folder `brxview` of $XDG_CACHE_HOME (~/.cache without it). It is
/// used again while it is newer than its source. One that is older is an error, because it may hold edits;
/// `rebuild` replaces it. `place`, when not empty, is the path of the store of a LAS or LAZ file instead.
VelBrx::Status findStore(const std::string& input, bool rebuild, const std::string& place, StorePlan& plan);

/// Builds the store of a plan that has a source. It has its name when it is complete: a failure leaves
/// nothing, nor does `cancel`. `progress` is called on the caller's thread; `notes` are for people.
VelBrx::Status buildStore(const StorePlan& plan,
                          const std::function<void(const VelBrx::BuildProgress&)>& progress,
                          const std::atomic<bool>& cancel, std::vector<std::string>& notes);

/// A sample of a survey, to be shown while its store is built.
struct StorePreview
{
    OpenedStore store; ///< under the survey's path
    uint64_t surveyPoints = 0;
};

/// Reads and opens it for a plan that has a source; empty where the store takes hardly longer. Nothing of it
/// stays on the disk, however the program ends.
VelBrx::Status openPreview(const StorePlan& plan, const std::atomic<bool>& cancel,
                           std::optional<StorePreview>& preview);

/// Both for a program on a terminal: progress on stderr, and signals end it.
VelBrx::Status findOrBuildStore(const std::string& input, bool rebuild, std::string& store,
                                const std::string& place = std::string());

/// What people must know before they edit the store that stands for an input: a line where it is in the cache
/// folder, which nobody backs up and which programs may empty; else nothing.
std::string warnOfCache(const std::string& input, const std::string& store);
