#pragma once

#include "viewer/operation/Operation.h"

/// What changes points, or marks them in the picture.
std::vector<Operation> editOperations();
