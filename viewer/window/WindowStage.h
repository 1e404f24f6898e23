#pragma once

#include "viewer/operation/Operation.h"

#include <osgViewer/View>

/// What keys and dialogs of a window act on: the camera moves by the view's manipulator, which makes the
/// place that it is sent to its home. All outlive the stage.
Stage windowStage(Scene& scene, SceneEditing& editing, osgViewer::View& view);
