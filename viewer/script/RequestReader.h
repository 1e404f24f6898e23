#pragma once

#include "viewer/operation/Operation.h"

#include <VelBrx/Status.h>
#include <nlohmann/json_fwd.hpp>

namespace script {

/// Reads what the object of an operation in a script says of its parameters into `request`, and checks it. A
/// failure names the member.
VelBrx::Status readRequest(const nlohmann::json& object, Request& request);

} // namespace script
