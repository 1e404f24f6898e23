#pragma once

#include "viewer/operation/Operation.h"

/// What changes points, or marks them in the picture.
std::vector<Operation> editOperations();

/// The operation that limits edits to ranges of attributes, with what holds now.
Request rangesOf(const Scene& scene);
