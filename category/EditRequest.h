#pragma once

#include "category/EditHistory.h"

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PixelBufferTool.h>

#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <map>
#include <string>
#include <vector>

/// What an edit request is carried out with.
struct EditContext
{
    std::map<std::string, osg::observer_ptr<OctreeInfo>> clouds; ///< by uid
    osg::ref_ptr<VelOsgDBBrx::PixelBufferTool> maskTool;         ///< null: a `PolygonMaskTool`
};

/// Carries an edit request out. A failure says why nothing was done.
VelBrx::Status carryOut(const VelOsgDBBrx::Category& request, const EditContext& context,
                        std::vector<CloudEdit>& edits);
