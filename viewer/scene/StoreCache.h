#pragma once

#include <VelBrx/Status.h>

#include <string>

/// Finds the store to show for a file that the user named.
///
/// A store is itself. The store of a LAS or LAZ file `survey.las` is `survey.las.brx` beside it, or, where
/// that folder cannot be written, in the folder `brxview` of $XDG_CACHE_HOME (~/.cache without it). It is
/// built when it is missing, with progress on stderr, and used again while it is newer than its source. One
/// that is older is an error, because it may hold edits; `rebuild` replaces it. `place`, when not empty, is
/// the path of the store of a LAS or LAZ file instead.
VelBrx::Status findOrBuildStore(const std::string& input, bool rebuild, std::string& store,
                                const std::string& place = std::string());

/// What people must know before they edit the store that stands for an input: a line where it is in the cache
/// folder, which nobody backs up and which programs may empty; else nothing.
std::string warnOfCache(const std::string& input, const std::string& store);
