#include "cull/StoreProblems.h"

bool lockForEditing(const OctreeInfo& octree, VelOsgDBBrx::CmdResult& result)
{
    VelBrx::File& file = *octree.pointFile;
    const bool isNamed = file.isStillNamed();
    const VelBrx::Status status =
        isNamed
            ? file.lockForEditing()
            : VelBrx::Status::failure("is no longer the file that was opened and was left as it is; put that "
                                      "back, or open the new one");
    if (status) return true;
    ++(isNamed ? result.storesBusy : result.storesReplaced);
    if (result.reason.empty()) result.reason = octree.pointPath + ": " + status.message();
    return false;
}

void noteProblem(const OctreeInfo& octree, const VelBrx::FileWriter& writer, VelOsgDBBrx::CmdResult& result)
{
    const std::string problem = writer.problem();
    if (result.reason.empty() && !problem.empty()) result.reason = octree.pointPath + ": " + problem;
}
