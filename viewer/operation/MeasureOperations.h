#pragma once

#include "viewer/operation/Operation.h"

/// What measures, and keeps what was measured.
std::vector<Operation> measureOperations();

/// What a request of the operation "measure" gives.
Measurement measurementOf(const Request& request);
