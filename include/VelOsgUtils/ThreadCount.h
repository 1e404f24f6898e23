#pragma once

#include <VelOsgUtils/Export.h>

namespace VelOsgUtils {

/// How many threads the libraries run, and whether the process is ending. Any thread may call it, also while
/// static objects are being destroyed.
class VEL_OSG_UTILS_EXPORT ThreadCount
{
public:
    /// One of these lives on the stack of every thread that the libraries start.
    class VEL_OSG_UTILS_EXPORT Scope
    {
    public:
        Scope();
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

    /// Threads of the libraries that have begun to run and are not at their end: one that was started counts
    /// a moment later, one that was joined does not. The readers of a pass do not count.
    static int running();

    /// True once the exiting process has destroyed the static objects made after the first call of this.
    static bool isProcessStopping();

    /// Half the processors, but at least one and at most `items`: the threads for background work on `items`
    /// items. 1 where OpenMP is off.
    static int halfOfProcessors(int items);
};

} // namespace VelOsgUtils
