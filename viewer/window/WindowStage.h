#pragma once

#include "viewer/operation/Operation.h"

#include "viewer/window/Views.h"

/// What keys and dialogs of a window act on: the camera of the main picture goes where it is sent, and makes
/// that its home. All outlive the stage.
Stage windowStage(Scene& scene, SceneEditing& editing, Views& views, Measuring& measuring);
