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
    std::vector<osg::observer_ptr<OctreeInfo>> inScene;          ///< what `cloudsInScene` found
    osg::ref_ptr<VelOsgDBBrx::PixelBufferTool> maskTool;         ///< null: a `PolygonMaskTool`
};

/// The clouds that a request means by where they are in a scene: those under the group that is its record's
/// target, or, without a target and unless `uidIsCloud`, those of the viewer that its uid names. Reads the
/// scene: for the thread that may.
std::vector<osg::observer_ptr<OctreeInfo>> cloudsInScene(const VelOsgDBBrx::Category& request,
                                                         bool uidIsCloud);

/// Carries an edit request out. A failure says why nothing was done.
VelBrx::Status carryOut(const VelOsgDBBrx::Category& request, const EditContext& context,
                        std::vector<CloudEdit>& edits);
