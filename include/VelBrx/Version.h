#pragma once

#include <VelBrx/Export.h>

/// The version of these headers. Below 1.0 a new minor version may break programs, afterwards a new major
/// one.
#define VEL_BRX_VERSION "0.1.0"

namespace VelBrx {

/// The version of the library that is loaded, which may differ from `VEL_BRX_VERSION`. Any thread may call
/// it.
VEL_BRX_EXPORT const char* version();

} // namespace VelBrx
