#pragma once

#include "viewer/operation/Operation.h"

/// What moves about in the picture of a window.
std::vector<Operation> cameraOperations();
