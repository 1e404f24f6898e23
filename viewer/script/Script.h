#pragma once

#include "viewer/operation/Operations.h"
#include "viewer/scene/Options.h"

#include <VelBrx/Status.h>

#include <optional>
#include <string>
#include <vector>

/// Scripts of operations, their values checked. docs/scripting.md describes them.
namespace script {

struct Script
{
    std::string name; ///< of the file, for messages
    std::vector<Request> steps;
};

/// "operation 3 (cull)": how messages name a step; `index` counts from 0. Null where its operation is not
/// known.
std::string nameOfStep(size_t index, const Operation* operation);

/// Reads and checks the script of the headless request of `options`, a file or "-" for standard input, and
/// takes its window's size into the request. Nothing has been done when it fails.
VelBrx::Status read(Options& options, Script& script);

} // namespace script
