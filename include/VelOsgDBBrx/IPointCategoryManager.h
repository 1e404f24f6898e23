#pragma once

#include <VelOsgDBBrx/Export.h>

#include <osg/Referenced>

namespace VelOsgDBBrx {

/// Applies classification commands to the point clouds of one graphics context on a thread of its own.
/// Any thread may call it.
class VEL_OSGDB_BRX_EXPORT IPointCategoryManager : public osg::Referenced
{
public:
    virtual void addMember(osg::Referenced* member) = 0; ///< held from then on
    virtual void removeMember(osg::Referenced* member) = 0;
    virtual void start() = 0;
    virtual void stop() = 0; ///< returns after the thread has ended

protected:
    ~IPointCategoryManager() override = default;
};

} // namespace VelOsgDBBrx
