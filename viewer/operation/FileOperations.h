#pragma once

#include "viewer/operation/Operation.h"

/// What opens, closes and writes files.
std::vector<Operation> fileOperations();

/// To open a file.
Request openRequest(const std::string& file);
