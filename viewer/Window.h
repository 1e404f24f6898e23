#pragma once

#include "viewer/Options.h"
#include "viewer/Scene.h"

#include <VelBrx/Status.h>
#include <osgViewer/Viewer>

/// Background, projection and culling as point clouds need them, for a picture of `aspect` = width / height.
void setUpCamera(osg::Camera& camera, double aspect);

/// Shows `scene` in a window of `viewer`, the one that the user's options made or one of our size, until it
/// is closed.
VelBrx::Status runInWindow(osgViewer::Viewer& viewer, Scene& scene, const Options& options);
