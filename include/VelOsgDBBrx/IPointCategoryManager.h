#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/OperationThread>
#include <osg/Referenced>
#include <osg/Vec4d>

#include <vector>

namespace VelOsgDBBrx {

struct CategoryCmdInner;

/// Applies classification commands to the point clouds of one graphics context, on a thread of its own.
///
/// Threads: any thread may call any operation, except for the operation holder, which is stored without a
/// lock.
class VEL_OSGDB_BRX_EXPORT IPointCategoryManager : public osg::Referenced
{
public:
    virtual void addMember(osg::Referenced* member) = 0; ///< held from then on
    virtual void removeMember(osg::Referenced* member) = 0;

    virtual void start() = 0; ///< starts the thread
    virtual void stop() = 0;  ///< returns after the thread has ended; start may follow

    /// Replaces the operation that applies commands. It is run on the manager's thread with a `CategoryData`
    /// as argument and no lock held. Without one, commands are dropped.
    virtual void setOperation(osg::Operation* operation) = 0;

    /// An object kept for the operation's owner. Held, not used.
    virtual void setOperationHolder(osg::Referenced* holder) = 0;
    virtual osg::Referenced* getOperationHolder() = 0;

    /// Queues a command and wakes the thread; null is ignored. Octrees among the members get the transform
    /// that they have in the scene at this moment, so nobody adds, moves or removes the nodes above them
    /// meanwhile.
    virtual void pushCmd(CategoryCmdInner* command) = 0;

    virtual void pushKind1() = 0; ///< queues an undo: `CategoryCmdInner::UNDO`
    virtual void pushKind2() = 0; ///< queues a redo: `CategoryCmdInner::REDO`
    virtual void pushKind3() = 0; ///< queues a reset: `CategoryCmdInner::RESET`

    /// Replaces the clip planes that commands are applied with from now on.
    virtual void setClipPlanes(std::vector<osg::Vec4d>& planes) = 0;
    void setClipPlanes(const std::vector<osg::Vec4d>& planes)
    {
        std::vector<osg::Vec4d> copy = planes;
        setClipPlanes(copy);
    }

protected:
    ~IPointCategoryManager() override = default;
};

} // namespace VelOsgDBBrx
