#pragma once

#include <VelBrx/EditHistory.h>
#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Export.h>
#include <VelOsgDBBrx/OctreeInfo.h>

#include <vector>

namespace VelOsgDBBrx {

/// Marks the points of a cloud that edits touched, for `ShaderHelper::changedColorShader`: those that are
/// loaded, and from then on each cell that is read.
///
/// Marks are as of the moment of the call; call again after edits. They belong to the store: of one that is
/// open twice both clouds show those that were asked for last. Memory: two bytes a point in blocks of 65536
/// points that different edits touched.
///
/// Threads: one call for a cloud at a time, on any thread; waits for a level-of-detail pass or an edit of the
/// store that runs.
class VEL_OSGDB_BRX_EXPORT EditLens
{
public:
    /// A point's mark is the place, counted from 1, in `edits` of the last change that touched it, as the
    /// store's journal tells; 0 for a point that none touched. `edits` are the changes in effect, oldest
    /// first, classes that are not saved included; of more than 65535 the newest. What was forgotten leaves
    /// no mark. No edits, and success, where there is no journal.
    static VelBrx::Status showEdits(OctreeInfo& octree, std::vector<VelBrx::EditEntry>& edits);

    /// A point's mark is 1 where it is hidden and was not when the store was built, or the reverse, 2 where
    /// its class is another, 3 for both, and else 0. Fails where the store does not tell what it was.
    static VelBrx::Status showBuilt(OctreeInfo& octree);

    /// Cells that are read from now on have no marks. Those that are loaded keep theirs.
    static void end(OctreeInfo& octree);
};

} // namespace VelOsgDBBrx
