#pragma once

#include "lod/PointLoadManager.h"
#include "registry/ContextOperation.h"

#include <VelOsgDBBrx/IPointCategoryManager.h>

#include <osg/observer_ptr>
#include <osg/ref_ptr>
#include <osgViewer/ViewerBase>

/// The services of one graphics context.
class PointCloudData : public osg::Referenced
{
public:
    PointCloudData(PointLoadManager* loads, VelOsgDBBrx::IPointCategoryManager* categories,
                   ContextOperation* contextOperation)
        : loadManager(loads), categoryManager(categories), operation(contextOperation)
    {
    }

    const osg::ref_ptr<PointLoadManager> loadManager;
    const osg::ref_ptr<VelOsgDBBrx::IPointCategoryManager> categoryManager;
    const osg::ref_ptr<ContextOperation> operation;

    osg::observer_ptr<osgViewer::ViewerBase> viewer; ///< has the operation; guarded by the registry's lock

protected:
    ~PointCloudData() override = default;
};
