#pragma once

#include "category/ClassUndoStack.h"
#include "edit/CloudPlaces.h"

#include <VelBrx/Status.h>
#include <VelOsgDBBrx/Category.h>
#include <VelOsgDBBrx/OctreeInfo.h>
#include <VelOsgDBBrx/PixelBufferTool.h>

#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include <map>
#include <memory>
#include <string>
#include <vector>

/// What an edit request is carried out with.
struct EditContext
{
    std::map<std::string, osg::observer_ptr<OctreeInfo>> clouds; ///< by uid
    std::vector<osg::observer_ptr<OctreeInfo>> inScene;          ///< what `cloudsInScene` found
    std::shared_ptr<const CloudPlaces> places;                   ///< of what `notePlaces` noted
    osg::ref_ptr<VelOsgDBBrx::PixelBufferTool> maskTool;         ///< null: a `PolygonMaskTool`
};

/// The clouds that a request means by where they are in a scene: those under the group that is its record's
/// target, or, without a target and unless `uidIsCloud`, those of the view that its uid names. Reads the
/// scene: for the thread that may.
std::vector<osg::observer_ptr<OctreeInfo>> cloudsInScene(const VelOsgDBBrx::Category& request,
                                                         bool uidIsCloud);

/// Notes where the clouds stand that a request means: those found in the scene, that of its record's target,
/// and `registered`, that of its uid, if there is one. Reads the scene, too.
void notePlaces(const VelOsgDBBrx::Category& request,
                const std::vector<osg::observer_ptr<OctreeInfo>>& inScene, OctreeInfo* registered,
                CloudPlaces& places);

/// Carries an edit request out. A failure says why nothing was done; the edits have at most counts then.
VelBrx::Status carryOut(const VelOsgDBBrx::Category& request, const EditContext& context,
                        std::vector<CloudEdit>& edits);
