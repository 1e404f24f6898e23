#pragma once

#include <VelBrx/Export.h>

namespace VelBrx {

/// The name of a class, 0 to 22, as the LAS 1.4 standard has it, 8 and 12 as the point formats before 6 use
/// them; null for other codes. Any thread may call it.
VEL_BRX_EXPORT const char* className(unsigned code);

} // namespace VelBrx
