#pragma once

#include <VelBrx/ClassTable.h>

#include <string>

/// What `brx info` tells of a folder: its stores and those of the folders in it, together. Classes are those
/// that the stores were built with: no point is read. Stores that cannot be read are listed, and then the
/// command fails: throws a CommandError.
void tellFolder(const std::string& folder, const VelBrx::ClassTable& names, bool json);
