#pragma once

#include <VelBrx/File.h>
#include <VelOsgDBBrx/Export.h>
#include <VelThreads/Mutex.h>

#include <OpenThreads/Mutex>
#include <osg/Matrixd>
#include <osg/Referenced>
#include <osg/Vec3d>
#include <osg/Vec4d>
#include <osg/ref_ptr>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CellData;
class CellTable;
class OctreeViews;
class PointMarks;

namespace VelBrx {
class EditJournal;
}

/// One loaded store: where its files are and the root of its cell tree. Owned by its point cloud's nodes;
/// everything else, commands above all, holds it by `osg::observer_ptr` and locks that before use.
class VEL_OSGDB_BRX_EXPORT OctreeInfo : public osg::Referenced
{
public:
    /// Values of `visibility`.
    enum Visibility : uint32_t
    {
        VISIBLE = 0,
        HIDDEN_NOT_CLEARED = 1, ///< hidden, its cells still to be removed
        HIDDEN_CLEARED = 2
    };

    class VEL_CAPABILITY("mutex") Mutex : public OpenThreads::Mutex
    {
    public:
        int lock() override VEL_ACQUIRE() { return OpenThreads::Mutex::lock(); }
        int unlock() override VEL_RELEASE() { return OpenThreads::Mutex::unlock(); }
        int trylock() override VEL_TRY_ACQUIRE(0) { return OpenThreads::Mutex::trylock(); }
    };

    OctreeInfo();

    /// \name Constant once the store is loaded
    /// @{
    osg::Vec3d offset; ///< origin of every vertex of this octree, in file coordinates
    osg::Vec3d min;    ///< smallest corner minus offset
    osg::Vec3d max;    ///< largest corner minus offset
    /// @}

    /// Local to world: where the last cull traversal met the cloud, or where it stood when an edit of it was
    /// asked for.
    osg::Matrixd transform VEL_GUARDED_BY(mutex);

    /// \name Constant once the store is loaded
    /// @{
    osg::ref_ptr<CellData> root;
    std::string pointPath;
    std::string normalsPath;
    std::shared_ptr<VelBrx::File> pointFile; ///< shared with those who keep edits of it, also unwritten ones
    std::unique_ptr<VelBrx::File> normalsFile;
    /// @}

    std::vector<osg::Vec4d> planes VEL_GUARDED_BY(mutex); ///< clip planes in world coordinates
    mutable Mutex mutex;

    /// \name Constant once the store is loaded
    /// @{
    int64_t pointDataStart = 0; ///< byte position of the first point record
    osg::Vec3d scale;           ///< file units per step of a record's integer coordinate
    /// @}

    /// \name The journal of edits, where a host has switched it on: see VelOsgDBBrx::EditJournalling
    /// Guarded by `pointFile->mutex`.
    /// @{
    bool keepsJournal = false;
    bool isJournalTemporary = false;
    std::string journalAuthor;                    ///< empty: the login name
    std::shared_ptr<VelBrx::EditJournal> journal; ///< null until the first edit
    /// @}

    /// What the lens on edits shows of the points, null where it is off: see VelOsgDBBrx::EditLens. Any
    /// thread, by `std::atomic_load` and `std::atomic_store`.
    std::shared_ptr<const PointMarks> marks;

    /// \name Paging state
    /// @{
    std::atomic<uint32_t> visibility{VISIBLE};
    std::atomic<uint32_t> busy{0}; ///< bit 0: a camera-independent pass or an edit has the octree
    std::atomic<uint32_t> dirty{
        0}; ///< set when the octree's content changed; a load manager reads and clears it
    std::atomic<bool> registered{false};   ///< registered with the managers of a context
    osg::ref_ptr<CellTable> cellTable;     ///< belongs to the passes of the context it is registered with
    const osg::ref_ptr<OctreeViews> views; ///< the cameras that draw it; never null
    /// @}

protected:
    ~OctreeInfo() override;
};
