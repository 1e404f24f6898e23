#pragma once

#include <VelBrx/FileIdentity.h>

namespace VelBrx {

/// The identity of an open file.
FileIdentity identifyFile(int descriptor);

} // namespace VelBrx
