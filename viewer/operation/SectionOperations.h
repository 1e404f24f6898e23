#pragma once

#include "viewer/operation/Operation.h"

/// What opens, moves and closes a section.
std::vector<Operation> sectionOperations();
