#pragma once

#include "viewer/scene/Options.h"
#include "viewer/scene/Scene.h"
#include "viewer/settings/Settings.h"
#include "viewer/window/EditKeys.h"
#include "viewer/window/HelpKey.h"
#include "viewer/window/Overlay.h"
#include "viewer/window/Views.h"

#include <VelBrx/Status.h>
#include <osgViewer/Viewer>

/// Background, projection and culling as point clouds need them, for a picture of `aspect` = width / height.
void setUpCamera(osg::Camera& camera, double aspect);

/// Gives the viewer its keys, in the order in which they see events. What is drawn over the camera must have
/// been added to it, so that screenshots hold it. Returns the help, which lists all keys.
osg::ref_ptr<HelpKey> addHandlers(osgViewer::Viewer& viewer, EditKeys& editKeys, Scene& scene, Views& views,
                                  Overlay& overlay, bool showLegend);

/// Shows `scene` in a window of `viewer`, the one that the user's options made or one of our size, until it
/// is closed. What the user leaves it like is kept in `settings`.
VelBrx::Status runInWindow(osgViewer::Viewer& viewer, Scene& scene, const Options& options,
                           Settings& settings);
