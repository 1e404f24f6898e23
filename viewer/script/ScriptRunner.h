#pragma once

#include "viewer/scene/Options.h"
#include "viewer/scene/Scene.h"
#include "viewer/script/Script.h"

#include <VelBrx/Status.h>
#include <osgViewer/Viewer>

namespace script {

/// Runs a script on `scene` in a window of `viewer` without a display. What each operation did is printed on
/// stdout, one JSON object a line, and so is the end. The first operation that fails ends the script; the
/// failure names it. Classes are left to the
/// journals that are not saved at the end; where a store has none they are lost, which is a failure.
VelBrx::Status run(const Script& script, osgViewer::Viewer& viewer, Scene& scene, const Options& options);

} // namespace script
