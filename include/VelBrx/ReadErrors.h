#pragma once

#include <VelBrx/Export.h>
#include <VelBrx/Status.h>

#include <cstdint>

/// \file
/// What becomes of a mapped file whose bytes cannot be read: its disk fails, or somebody cut it. The system
/// tells by a signal, SIGBUS, that ends the process where nobody handles it.

namespace VelBrx {

class File;

/// Makes such bytes an error of what reads them, as long as the process lives: a page that cannot be read
/// becomes zeros and is noted; cells on it are shown without its points, edits of them fail, exports too.
///
/// For programs, once, at their start. The library never does it by itself, as signals are the host's: a host
/// that handles SIGBUS calls it behind its own handler's installation, and its handler still gets every
/// SIGBUS that no open store caused. Any thread.
VEL_BRX_EXPORT void surviveReadErrors();

/// Whether all of a range of memory that `File::map` gave is what the file holds: false once a page of it
/// could not be read. To be asked after the reading. Costs nothing to speak of as long as all goes well. Any
/// thread.
VEL_BRX_EXPORT bool wasRead(const void* memory, int64_t length);

/// Fails where bytes of the file could not be read since it was opened, or where it has been cut; the message
/// follows the name of the file. Any thread.
VEL_BRX_EXPORT Status checkReads(const File& file);

} // namespace VelBrx
