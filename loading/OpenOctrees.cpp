#include "loading/OpenOctrees.h"

#include <VelThreads/Mutex.h>

#include <osg/observer_ptr>

#include <map>
#include <vector>

namespace {

using Octrees = std::vector<osg::observer_ptr<OctreeInfo>>;

struct OpenOctrees
{
    VelThreads::Mutex mutex;
    std::map<VelBrx::FileIdentity, Octrees> byFile VEL_GUARDED_BY(mutex); ///< the last opened at the back
    size_t nextSweep VEL_GUARDED_BY(mutex) = 16; ///< files; then those that were closed are dropped
};

OpenOctrees& all()
{
    static OpenOctrees octrees;
    return octrees;
}

void dropClosed(Octrees& octrees)
{
    while (!octrees.empty() && !octrees.back().valid())
        octrees.pop_back();
}

} // namespace

void noteOpenOctree(OctreeInfo& octree)
{
    const VelThreads::Lock guard(all().mutex);
    auto& byFile = all().byFile;
    // Not each time: thousands of stores are opened one after the other.
    if (byFile.size() >= all().nextSweep) {
        for (auto file = byFile.begin(); file != byFile.end();) {
            dropClosed(file->second);
            file = file->second.empty() ? byFile.erase(file) : std::next(file);
        }
        all().nextSweep = 2 * byFile.size() + 16;
    }
    Octrees& octrees = byFile[octree.pointFile->identity()];
    dropClosed(octrees);
    octrees.emplace_back(&octree);
}

osg::ref_ptr<OctreeInfo> findOpenOctree(const VelBrx::FileIdentity& file)
{
    const VelThreads::Lock guard(all().mutex);
    osg::ref_ptr<OctreeInfo> open;
    const auto found = all().byFile.find(file);
    if (found == all().byFile.end()) return open;
    for (auto octree = found->second.rbegin(); octree != found->second.rend(); ++octree)
        if (octree->lock(open)) break;
    return open;
}
