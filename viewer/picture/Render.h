#pragma once

#include "viewer/scene/Options.h"
#include "viewer/scene/Scene.h"

#include <VelBrx/Status.h>
#include <osgViewer/Viewer>

/// Draws `scene` with `viewer` into the picture that `options.headless` names, without a display, once all
/// cells that the camera wants are there. Of the stores that wait it opens those in the picture. Prints the
/// points and cells drawn on stdout.
VelBrx::Status render(osgViewer::Viewer& viewer, Scene& scene, const Options& options);
