#pragma once

#include <VelBrx/Status.h>

#include <string>

/// Finds the store to show for a file that the user named.
///
/// A store is itself. The store of a LAS or LAZ file `survey.las` is `survey.las.brx` beside it, or, where
/// that folder cannot be written, in the folder `brxview` of $XDG_CACHE_HOME (~/.cache without it). It is
/// built when it is missing, with progress on stderr, and used again while it is newer than its source. One
/// that is older is an error, because it may hold edits; `rebuild` replaces it.
VelBrx::Status findOrBuildStore(const std::string& input, bool rebuild, std::string& store);
