#pragma once

#include <VelBrx/FileWriter.h>
#include <VelOsgDBBrx/BaseCmd.h>
#include <VelOsgDBBrx/OctreeInfo.h>

/// What keeps a command from changing a store, in the command's result.

/// Makes sure that the store's path still leads to its file, and that no other process edits it; the octree
/// is editable. False when it is not so: the result says why then.
bool lockForEditing(const OctreeInfo& octree, VelOsgDBBrx::CmdResult& result);

/// Takes down why a writer could not write.
void noteProblem(const OctreeInfo& octree, const VelBrx::FileWriter& writer, VelOsgDBBrx::CmdResult& result);
