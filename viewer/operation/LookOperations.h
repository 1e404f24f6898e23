#pragma once

#include "viewer/operation/Operation.h"

/// What shows the points otherwise and changes none.
std::vector<Operation> lookOperations();
