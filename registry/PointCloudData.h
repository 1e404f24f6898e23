#pragma once

#include "registry/ContextOperation.h"

#include <VelOsgDBBrx/IPointCategoryManager.h>
#include <VelOsgDBBrx/IPointLoadManager.h>

#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgViewer/ViewerBase>

/// The services of one graphics context.
class PointCloudData : public osg::Referenced
{
public:
    PointCloudData(VelOsgDBBrx::IPointLoadManager* loads, VelOsgDBBrx::IPointCategoryManager* categories,
                   ContextOperation* contextOperation)
        : loadManager(loads), categoryManager(categories), operation(contextOperation)
    {
    }

    const osg::ref_ptr<VelOsgDBBrx::IPointLoadManager> loadManager;
    const osg::ref_ptr<VelOsgDBBrx::IPointCategoryManager> categoryManager;
    const osg::ref_ptr<ContextOperation> operation;

    osg::observer_ptr<osgViewer::ViewerBase> viewer; ///< has the operation; guarded by the registry's lock

protected:
    ~PointCloudData() override = default;
};
