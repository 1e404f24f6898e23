#pragma once

#include "viewer/Options.h"
#include "viewer/Scene.h"

#include <VelBrx/Status.h>
#include <osgViewer/Viewer>

/// Tells whether the picture of `options.render` can be written, before any work is done for it.
VelBrx::Status checkRenderOutput(const Options& options);

/// Draws `scene` with `viewer` into a picture file without a display, once all cells that the camera wants
/// are there. Prints the points and cells drawn on stdout.
VelBrx::Status render(osgViewer::Viewer& viewer, const Scene& scene, const Options& options);
