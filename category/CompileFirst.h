#pragma once

#include "category/ClassEdit.h"

#include <VelOsgDBBrx/VelIncrementalCompileOperation.h>

#include <vector>

/// Has the loaded cells compiled before everything else that waits, so that their new classes are the first
/// to be drawn.
void compileFirst(VelOsgDBBrx::VelIncrementalCompileOperation& operation,
                  const std::vector<EditedCell>& cells);
